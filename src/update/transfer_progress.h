#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>

#include <QLineEdit>

#include "platform/platform.h"

namespace mvdirigo {

/// How much of an image is sent, and how long the rest takes at the rate so far. It looks four
/// times a second what has come, because a repaint between two pieces holds the second up.
class TransferProgress : public QLineEdit {
 public:
  explicit TransferProgress(Platform& platform);
  ~TransferProgress() override;

  void start(std::size_t bytes);
  /// Bytes sent since the start.
  void setSent(std::size_t sent) { sent_ = sent; }
  /// Leaves the bytes that were sent.
  void stop();
  /// For the next transfer.
  void forget() { clear(); }

 private:
  void onPause();
  QString bytesText() const;
  QString timeLeft() const;

  EventLoop& event_loop_;
  std::size_t sent_ = 0, all_ = 0;
  /// Bytes sent when it last looked and found more, and when that was.
  std::size_t seen_ = 0;
  std::int64_t start_ms_ = 0, seen_ms_ = 0;
  std::unique_ptr<Timer> pause_;
};

}  // namespace mvdirigo
