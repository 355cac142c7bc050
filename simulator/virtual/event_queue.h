#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <utility>

#include "simulator/model/sim_time.h"

namespace mvdirigo {

/// The one queue of a virtual machine: events in order of their time, those of one time in order of
/// their arrival. Running an event sets the clock to its time; nothing else moves the clock.
class EventQueue {
 public:
  using Handle = std::pair<SimTime, std::uint64_t>;

  explicit EventQueue(SimTime start) : now_(start) {}
  EventQueue(const EventQueue&) = delete;
  EventQueue& operator=(const EventQueue&) = delete;

  [[nodiscard]] SimTime now() const { return now_; }

  /// What an event is, for people: a text that outlives it, such as a literal, and behind it a
  /// number if there is one.
  struct Name {
    const char* text;
    std::optional<int> number = std::nullopt;
  };

  /// An event of the past runs as soon as possible.
  Handle post(SimTime when, Name name, std::function<void()> action);

  /// A cancelled event never runs. Cancelling one that ran already does nothing.
  void cancel(const Handle& handle) { events_.erase(handle); }

  /// The time of the next event, if there is one.
  [[nodiscard]] std::optional<SimTime> nextTime() const;

  /// What is due and when, in s from now: a line for each of the next events.
  [[nodiscard]] std::string describe() const;

  /// Runs the next event, which must exist. The event may itself post, cancel and run events.
  void runNext();

  /// Moves the clock over a stretch of time in which nothing is due.
  void skipTo(SimTime when);

 private:
  struct Event {
    Name name;
    std::function<void()> action;
  };

  SimTime now_;
  std::uint64_t arrivals_ = 0;
  std::map<Handle, Event> events_;
};

}  // namespace mvdirigo
