#pragma once

#include <optional>
#include <string>

#include "simulator/model/sim_time.h"

namespace mvdirigo {

/// What is at the far end of a serial line, whoever drives the time: the virtual machine of the
/// tests or a program on a real clock. Times never run backwards. Bytes are Latin-1.
class SimulatedLine {
 public:
  virtual ~SimulatedLine() = default;

  /// Takes one byte from the host, whose last bit is on the line at `now`.
  virtual void receive(char byte, int host_baud, SimTime now) = 0;

  /// When the line next does something by itself, if ever. Asked after every other call.
  [[nodiscard]] virtual std::optional<SimTime> nextEvent() const = 0;

  /// Lets happen what is due until `now`, and returns the bytes that the host has heard of it.
  [[nodiscard]] virtual std::string advance(SimTime now, int host_baud) = 0;

  /// Whether the device that the host talks through is gone from the machine.
  [[nodiscard]] virtual bool vanished() const { return false; }
};

}  // namespace mvdirigo
