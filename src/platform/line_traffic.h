#pragma once

#include <chrono>
#include <cstdio>
#include <string>
#include <string_view>

namespace mvdirigo {

/// When, where and which way bytes went over a serial line: one write, or what one read took.
struct LineTransfer {
  enum class Direction : char { kOut = '>', kIn = '<' };

  /// Since local midnight.
  std::chrono::milliseconds time_of_day{0};
  int comm_port = 0;
  Direction direction = Direction::kOut;

  /// What stands before the bytes where people read them: "HH:MM:SS.mmm COM1 > ".
  [[nodiscard]] std::string head() const {
    const std::chrono::hh_mm_ss time(time_of_day);
    char text[64];
    std::snprintf(
        text, sizeof text, "%02d:%02d:%02d.%03d COM%d %c ", static_cast<int>(time.hours().count()),
        static_cast<int>(time.minutes().count()), static_cast<int>(time.seconds().count()),
        static_cast<int>(time.subseconds().count()), comm_port, static_cast<char>(direction));
    return text;
  }
};

/// Where all serial ports of a platform tell what goes over their lines.
class LineTraffic {
 public:
  class Watcher {
   public:
    virtual ~Watcher() = default;
    /// Called inside a port's write or read, so it has to be quick and may not touch a port.
    /// `bytes` (Latin-1) are valid during the call only.
    virtual void lineTransfer(const LineTransfer& transfer, std::string_view bytes) = 0;
  };

  LineTraffic() = default;
  /// A copy would be told nothing.
  LineTraffic(const LineTraffic&) = delete;
  LineTraffic& operator=(const LineTraffic&) = delete;

  /// `watcher` is told from now on, in place of the one before; null for none.
  void watch(Watcher* watcher) { watcher_ = watcher; }
  [[nodiscard]] bool watched() const { return watcher_ != nullptr; }

  /// For the ports. Those look at `watched()` before they ask for the time.
  void tell(const LineTransfer& transfer, std::string_view bytes) {
    if (watcher_ != nullptr) watcher_->lineTransfer(transfer, bytes);
  }

 private:
  Watcher* watcher_ = nullptr;
};

}  // namespace mvdirigo
