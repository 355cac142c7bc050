#pragma once

#include <ctime>
#include <functional>

#include "platform/platform.h"

namespace mvdirigo {

/// Handles events until `done()` holds, which is looked at every millisecond; gives up after ten
/// seconds and returns false.
inline bool runUntil(Platform& platform, const std::function<bool()>& done) {
  int looks_left = 10'000;
  const auto clock = platform.makeTimer([&] { --looks_left; });
  clock->setInterval(1);
  clock->setEnabled(true);
  platform.eventLoop().waitUntil([&] { return done() || looks_left <= 0; }, WindowLife());
  return done();
}

/// The part of one processor that this program uses while it handles events for `duration_ms`.
inline double loadDuring(Platform& platform, int duration_ms) {
  bool over = false;
  const auto timer = platform.makeTimer([&] { over = true; });
  timer->setInterval(duration_ms);
  timer->setEnabled(true);
  const std::clock_t before = std::clock();
  platform.eventLoop().waitUntil([&] { return over; }, WindowLife());
  return 1e3 * static_cast<double>(std::clock() - before) / CLOCKS_PER_SEC / duration_ms;
}

}  // namespace mvdirigo
