#include "simulator/program/traffic_log.h"

#include <cstdio>

#include "platform/text.h"

namespace mvdirigo {
namespace {

constexpr SimTime kRowEndsAfter = std::chrono::milliseconds(20);
constexpr std::size_t kLongestRow = 80;

}  // namespace

void TrafficLog::add(Direction direction, const std::string& bytes, SimTime now) {
  if (!on_ || bytes.empty()) return;
  if (direction != direction_ || bytes_.size() >= kLongestRow) flush();
  if (bytes_.empty()) first_ = now;
  direction_ = direction;
  bytes_ += bytes;
  last_ = now;
}

std::optional<SimTime> TrafficLog::nextEvent() const {
  if (bytes_.empty()) return std::nullopt;
  return last_ + kRowEndsAfter;
}

void TrafficLog::advance(SimTime now) {
  if (!bytes_.empty() && now >= last_ + kRowEndsAfter) flush();
}

void TrafficLog::flush() {
  if (bytes_.empty()) return;
  std::fprintf(
      stderr, "%12.3f %s %s %s\n", std::chrono::duration<double>(first_).count(), name_.c_str(),
      direction_ == Direction::kFromHost ? "host:" : "unit:", visibleControls(bytes_).c_str());
  bytes_.clear();
}

}  // namespace mvdirigo
