#include "console/tool_tip.h"

#include <QStringList>
#include <QTextDocument>
#include <QWidget>

#include "platform/text.h"

namespace mvdirigo {
namespace {

/// A tool tip shows its lines as they are, however wide the screen is.
QString wrapped(const QString& text) {
  constexpr int kLongestLine = 100;
  QStringList lines;
  for (QString rest : text.split('\n')) {
    while (rest.size() > kLongestLine) {
      const auto blank = rest.lastIndexOf(' ', kLongestLine);
      if (blank <= 0) break;
      lines << rest.left(blank);
      rest.remove(0, blank + 1);
    }
    lines << rest;
  }
  return lines.join('\n');
}

QString printed(const QString& text) {
  return QString::fromStdString(printable(text.toStdString()));
}

QString toolTipOf(const QString& printed) {
  const QString lines =
      wrapped(QString::fromStdString(breakLongStretches(printed.toStdString(), "\n", 100)));
  return Qt::mightBeRichText(lines) ? Qt::convertFromPlainText(lines, Qt::WhiteSpacePre) : lines;
}

}  // namespace

QString shortened(const QString& text) {
  constexpr int kLongest = 300;
  const QString start = QString::fromStdString(onOneLine(text.left(kLongest).toStdString()));
  return text.size() > kLongest ? start + QChar(0x2026) : start;
}

QString plainToolTip(const QString& text) { return toolTipOf(printed(text)); }

void setPlainToolTip(QWidget& widget, const QString& text) {
  const QString shown = printed(text);
  widget.setToolTip(toolTipOf(shown));
  // Without it, assistive tools would take the tool tip, markup and all.
  widget.setAccessibleDescription(shown);
}

}  // namespace mvdirigo
