#include "simulator/virtual/event_queue.h"

#include <algorithm>

namespace mvdirigo {

EventQueue::Handle EventQueue::post(SimTime when, std::function<void()> action) {
  const Handle handle{std::max(when, now_), arrivals_++};
  events_.emplace_hint(events_.end(), handle, std::move(action));
  return handle;
}

std::optional<SimTime> EventQueue::nextTime() const {
  if (events_.empty()) return std::nullopt;
  return events_.begin()->first.first;
}

void EventQueue::runNext() {
  const auto event = events_.extract(events_.begin());
  now_ = event.key().first;
  event.mapped()();
}

void EventQueue::skipTo(SimTime when) { now_ = std::max(now_, when); }

}  // namespace mvdirigo
