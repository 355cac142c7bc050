#pragma once

namespace mvdirigo {

/// Stands between this program and the system's serial drivers, because a pseudo-terminal takes any
/// rate and never holds up a closing: `close` and `ioctl` of the test program go through it. While
/// it exists, terminals behave as it says.
struct Driver {
  Driver() { current = this; }
  ~Driver() { current = nullptr; }
  static inline Driver* current = nullptr;

  /// Closing sleeps for half a minute unless a signal comes, and nothing can be discarded, as on an
  /// adapter that is stuck.
  bool stuck = false;
  /// The rate that the hardware takes, whatever it is asked for; 0 for that one.
  unsigned only_rate = 0;

  int interrupted_closings = 0;
  /// Control flags of the line, as they were asked for last.
  unsigned flags_asked = 0;
};

}  // namespace mvdirigo
