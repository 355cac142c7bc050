#include "console/tool_tip.h"

#include <QTextDocument>
#include <QWidget>

#include "platform/text.h"

namespace mvdirigo {

QString plainToolTip(const QString& text) {
  const QString lines = QString::fromStdString(breakLongStretches(text.toStdString(), "\n"));
  return Qt::mightBeRichText(lines) ? Qt::convertFromPlainText(lines, Qt::WhiteSpacePre) : lines;
}

void setPlainToolTip(QWidget& widget, const QString& text) {
  widget.setToolTip(plainToolTip(text));
  // Without it, assistive tools would take the tool tip, markup and all.
  widget.setAccessibleDescription(text);
}

}  // namespace mvdirigo
