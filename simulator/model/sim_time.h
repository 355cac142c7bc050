#pragma once

#include <chrono>

namespace mvdirigo {

/// A point in simulated time, since the simulation's own origin.
using SimTime = std::chrono::nanoseconds;

/// The time that one byte takes on a line: start bit, eight data bits, stop bit.
[[nodiscard]] constexpr SimTime byteTime(int baud) { return SimTime(10'000'000'000 / baud); }

}  // namespace mvdirigo
