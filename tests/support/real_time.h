#pragma once

#include <ctime>
#include <functional>

#include "platform/platform.h"

namespace mvdirigo {

/// Handles events until `done()` holds, which is looked at so often; returns false when it has
/// given up after so many looks.
inline bool runUntil(Platform& platform, const std::function<bool()>& done, int look_ms = 1,
                     int looks = 10'000) {
  const auto clock = platform.makeTimer([&] { --looks; });
  clock->setInterval(look_ms);
  clock->setEnabled(true);
  static_cast<void>(
      platform.eventLoop().waitUntil([&] { return done() || looks <= 0; }, WindowLife()));
  return looks > 0;
}

/// The same with no look but the last, after three seconds: an event must wake the wait in time.
inline bool wakesFor(Platform& platform, const std::function<bool()>& done) {
  return runUntil(platform, done, 3000, 1);
}

/// The part of one processor that this program uses while it handles events for `duration_ms`.
inline double loadDuring(Platform& platform, int duration_ms) {
  const std::clock_t before = std::clock();
  runUntil(
      platform, [] { return false; }, duration_ms, 1);
  return 1e3 * static_cast<double>(std::clock() - before) / CLOCKS_PER_SEC / duration_ms;
}

}  // namespace mvdirigo
