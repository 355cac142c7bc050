#include "simulator/virtual/event_queue.h"

#include <algorithm>
#include <cstdio>
#include <iterator>

namespace mvdirigo {
namespace {

constexpr std::ptrdiff_t kMostDescribed = 20;

/// In s, to the ns that the simulation counts in.
std::string seconds(SimTime time) {
  char text[32];
  std::snprintf(text, sizeof text, "%.9f s", std::chrono::duration<double>(time).count());
  return text;
}

}  // namespace

EventQueue::Handle EventQueue::post(SimTime when, Name name, std::function<void()> action) {
  const Handle handle{std::max(when, now_), arrivals_++};
  events_.emplace_hint(events_.end(), handle, Event{name, std::move(action)});
  return handle;
}

std::optional<SimTime> EventQueue::nextTime() const {
  if (events_.empty()) return std::nullopt;
  return events_.begin()->first.first;
}

std::string EventQueue::describe() const {
  std::string text = "at " + seconds(now_) + (events_.empty() ? " nothing is due" : " are due");
  const auto count = std::ssize(events_);
  const auto end = std::next(events_.begin(), std::min(count, kMostDescribed));
  for (auto event = events_.begin(); event != end; ++event) {
    const Name& name = event->second.name;
    text += "\n  +" + seconds(event->first.first - now_) + " " + name.text;
    if (name.number) text += std::to_string(*name.number);
  }
  if (count > kMostDescribed) text += "\n  and " + std::to_string(count - kMostDescribed) + " more";
  return text;
}

void EventQueue::runNext() {
  const auto event = events_.extract(events_.begin());
  now_ = event.key().first;
  event.mapped().action();
}

void EventQueue::skipTo(SimTime when) { now_ = std::max(now_, when); }

}  // namespace mvdirigo
