#include "console/tool_tip.h"

#include <QTextDocument>
#include <QWidget>

namespace mvdirigo {

QString plainToolTip(const QString& text) {
  return Qt::mightBeRichText(text) ? Qt::convertFromPlainText(text) : text;
}

void setPlainToolTip(QWidget& widget, const QString& text) {
  widget.setToolTip(plainToolTip(text));
  // Without it, assistive tools would take the tool tip, markup and all.
  widget.setAccessibleDescription(text);
}

}  // namespace mvdirigo
