#include "update/transfer_progress.h"

#include <algorithm>

#include <QLocale>
#include <QTime>

namespace mvdirigo {
namespace {

constexpr int kPauseMs = 250;
/// A unit that is silent for so long may never go on; the rate so far says nothing then.
constexpr int kStalledMs = 1000;
constexpr std::int64_t kMsPerHour = 3'600'000;
/// The longest time of day.
constexpr std::int64_t kMostMs = 24 * kMsPerHour - 1;

QString grouped(std::size_t number) {
  return QLocale(QLocale::English).toString(static_cast<qulonglong>(number));
}

}  // namespace

TransferProgress::TransferProgress(Platform& platform)
    : event_loop_(platform.eventLoop()), pause_(platform.makeTimer([this] { onPause(); })) {
  pause_->setInterval(kPauseMs);
  setObjectName("TransferProgress");
  setAccessibleName("Transfer progress");
  setReadOnly(true);
  setFrame(false);
  setFocusPolicy(Qt::ClickFocus);
  QPalette ground;
  ground.setColor(QPalette::Base, Qt::transparent);
  setPalette(ground);
}

TransferProgress::~TransferProgress() = default;

void TransferProgress::start(std::size_t bytes) {
  all_ = bytes;
  sent_ = seen_ = 0;
  start_ms_ = seen_ms_ = event_loop_.nowMs();
  setText(bytesText());
  pause_->setEnabled(true);
}

void TransferProgress::stop() {
  if (!pause_->Enabled()) return;
  pause_->setEnabled(false);
  setText(bytesText());
}

void TransferProgress::onPause() {
  const std::int64_t now_ms = event_loop_.nowMs();
  if (sent_ != seen_) {
    seen_ = sent_;
    seen_ms_ = now_ms;
  }
  const bool moving = seen_ > 0 && now_ms - seen_ms_ < kStalledMs;
  setText(moving ? bytesText() + QStringLiteral(" \u00B7 ") + timeLeft() : bytesText());
}

QString TransferProgress::bytesText() const {
  return grouped(sent_) + " of " + grouped(all_) + " bytes";
}

QString TransferProgress::timeLeft() const {
  const double ms_per_byte = static_cast<double>(seen_ms_ - start_ms_) / static_cast<double>(seen_);
  const auto left_ms =
      std::min(static_cast<std::int64_t>(ms_per_byte * static_cast<double>(all_ - seen_)), kMostMs);
  const QTime left = QTime::fromMSecsSinceStartOfDay(static_cast<int>(left_ms));
  return left.toString(left_ms < kMsPerHour ? "m:ss" : "h:mm:ss") + " left";
}

}  // namespace mvdirigo
