#include "update/update_summary.h"

#include <QEvent>
#include <QLocale>

#include "console/tool_tip.h"
#include "platform/text.h"

namespace mvdirigo {
namespace {

const QString kSeparator = QStringLiteral(" \u00B7 ");

QString factsOf(const UpdateFileFacts& file) {
  if (!file.obstacle.empty()) return "Can't be read: " + QString::fromStdString(file.obstacle);
  QStringList facts{QLocale(QLocale::English).toString(static_cast<qulonglong>(file.size)) +
                    " bytes"};
  if (file.header.NoHeader) {
    facts << "no header";
  } else {
    facts << (file.header.FullUpdate ? "full update" : "partial update");
    facts << "ID " + QString::fromStdString(file.header.CpuIdText);
  }
  if (file.size > kLargestUpdateFile) facts << "too large";
  return facts.join(kSeparator);
}

}  // namespace

UpdateSummary::UpdateSummary() {
  setObjectName("Summary");
  setAccessibleName("Summary");
  setTextFormat(Qt::PlainText);
  setSizePolicy(QSizePolicy::Ignored, QSizePolicy::Fixed);
}

void UpdateSummary::showFile(const UpdateFileFacts& file) {
  path_ = QString::fromStdString(onOneLine(file.path));
  facts_ = factsOf(file);
  setToolTip(plainToolTip(path_));
  fit();
}

void UpdateSummary::showTarget(const QString& target) {
  target_ = target;
  fit();
}

QSize UpdateSummary::sizeHint() const { return {0, QLabel::sizeHint().height()}; }

void UpdateSummary::resizeEvent(QResizeEvent* event) {
  QLabel::resizeEvent(event);
  fit();
}

void UpdateSummary::changeEvent(QEvent* event) {
  QLabel::changeEvent(event);
  if (event->type() == QEvent::FontChange) fit();
}

void UpdateSummary::fit() {
  QStringList lines{"No image loaded", target_, {}};
  if (!path_.isEmpty()) lines = {path_, facts_, target_};
  setAccessibleDescription(lines.join('\n').trimmed());
  const QFontMetrics metrics = fontMetrics();
  const int room = contentsRect().width();
  if (metrics.horizontalAdvance(lines[0]) > room) lines[0] = lines[0].section('/', -1);
  for (QString& line : lines) line = metrics.elidedText(line, Qt::ElideMiddle, room);
  setText(lines.join('\n'));
}

}  // namespace mvdirigo
