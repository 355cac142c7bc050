#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <utility>

namespace mvdirigo {

/// A point in simulated time, since the simulation's own origin.
using SimTime = std::chrono::nanoseconds;

/// The time that one byte takes on a line: start bit, eight data bits, stop bit.
inline SimTime byteTime(int baud) { return SimTime(10'000'000'000 / baud); }

/// The one queue of a virtual machine: events in order of their time, those of one time in order of
/// their arrival. Running an event sets the clock to its time; nothing else moves the clock.
class EventQueue {
 public:
  using Handle = std::pair<SimTime, std::uint64_t>;

  explicit EventQueue(SimTime start) : now_(start) {}

  SimTime now() const { return now_; }

  /// An event of the past runs as soon as possible.
  Handle post(SimTime when, std::function<void()> action);

  /// A cancelled event never runs. Cancelling one that ran already does nothing.
  void cancel(const Handle& handle) { events_.erase(handle); }

  /// The time of the next event, if there is one.
  std::optional<SimTime> nextTime() const;

  /// Runs the next event, which must exist. The event may itself post, cancel and run events.
  void runNext();

  /// Moves the clock over a stretch of time in which nothing is due.
  void skipTo(SimTime when);

 private:
  SimTime now_;
  std::uint64_t arrivals_ = 0;
  std::map<Handle, std::function<void()>> events_;
};

}  // namespace mvdirigo
