#pragma once

#include <list>
#include <string>
#include <vector>

#include "simulator/program/pty_port.h"

namespace mvdirigo {

/// The time of the real clock.
[[nodiscard]] SimTime realTime();

/// Serves the ports until `command` ends, which it starts, or without one until a signal asks it to
/// end. A signal is passed on to the command. Returns the command's exit code, 128 and the number
/// of the signal that ended it, 127 when it could not be started, or 0.
[[nodiscard]] int serve(std::list<PtyPort>& ports, const std::vector<std::string>& command);

}  // namespace mvdirigo
