#include "console/tool_tip.h"

#include <QStringList>
#include <QTextDocument>
#include <QWidget>

#include "platform/text.h"

namespace mvdirigo {
namespace {

QString shown(const QString& text) { return QString::fromStdString(printable(text.toStdString())); }

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

}  // namespace

QString onOneLine(const QString& text) {
  return shown(text).replace('\n', QChar(QChar::ReplacementCharacter));
}

QString shortened(const QString& text) {
  constexpr int kLongest = 300;
  return text.size() > kLongest ? onOneLine(text.left(kLongest)) + QChar(0x2026) : onOneLine(text);
}

QString plainToolTip(const QString& text) {
  const QString lines =
      wrapped(QString::fromStdString(breakLongStretches(printable(text.toStdString()), "\n", 100)));
  return Qt::mightBeRichText(lines) ? Qt::convertFromPlainText(lines, Qt::WhiteSpacePre) : lines;
}

void setPlainToolTip(QWidget& widget, const QString& text) {
  widget.setToolTip(plainToolTip(text));
  // Without it, assistive tools would take the tool tip, markup and all.
  widget.setAccessibleDescription(shown(text));
}

}  // namespace mvdirigo
