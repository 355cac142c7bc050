#include "update/traffic_view.h"

#include <algorithm>

#include <QFontDatabase>

#include "platform/text.h"

namespace mvdirigo {
namespace {

constexpr int kLines = 2000;
constexpr int kCharacters = 256 * 1024;
/// A unit that sends one carriage return after the other repeats all that was received before.
constexpr std::size_t kLongestLine = 500;
constexpr int kPauseMs = 100;

}  // namespace

TrafficView::TrafficView(Platform& platform)
    : pause_(platform.makeTimer([this] { showPrinted(); })) {
  pause_->setInterval(kPauseMs);
  setReadOnly(true);
  setMaximumBlockCount(kLines);
  setFont(QFontDatabase::systemFont(QFontDatabase::FixedFont));
}

TrafficView::~TrafficView() = default;

void TrafficView::print(FlashLink::Direction direction, std::string_view bytes) {
  const std::size_t cut = bytes.size() - std::min(bytes.size(), kLongestLine);
  const char* mark = direction == FlashLink::Direction::kSent ? "> " : "< ";
  printed_ << mark + QString::fromStdString(visibleControls(bytes.substr(cut)));
  if (printed_.size() > kLines) printed_.removeFirst();
  pause_->setEnabled(true);
}

void TrafficView::showPrinted() {
  pause_->setEnabled(false);
  appendPlainText(printed_.join('\n'));
  printed_.clear();
  dropOldest();
  moveCursor(QTextCursor::End);
}

void TrafficView::dropOldest() {
  const int surplus = document()->characterCount() - kCharacters;
  if (surplus <= 0) return;
  QTextCursor oldest(document());
  oldest.setPosition(surplus, QTextCursor::KeepAnchor);
  oldest.movePosition(QTextCursor::NextBlock, QTextCursor::KeepAnchor);
  oldest.removeSelectedText();
}

}  // namespace mvdirigo
