#pragma once

#include <string>

#include "platform/descriptor.h"

namespace mvdirigo {

/// A pseudo-terminal that stands for a serial device; the host opens `path()`.
class Pty {
 public:
  /// Throws std::system_error.
  Pty();

  [[nodiscard]] int fd() const { return master_.number(); }
  [[nodiscard]] const std::string& path() const { return path_; }

  /// The rate that the host has set, in bit/s; 0 for one that no serial line of ours has.
  [[nodiscard]] int hostBaud() const;
  /// What the host has sent and was not read yet, without waiting.
  [[nodiscard]] std::string read();
  /// A line does not wait for a host that does not read: what finds no room is lost.
  /// Returns how many bytes found room.
  [[nodiscard]] std::size_t write(const std::string& bytes);

  /// Readable when a host has closed the device; -1 when the system has no more watches to give.
  [[nodiscard]] int closingsFd() const { return closings_.number(); }
  void forgetClosings();
  /// Ends the exclusive use that a host which was killed has left behind; a port of its own would
  /// forget it with the host's last handle. One that a host holds the lock of stays.
  void endAbandonedUse();

 private:
  Descriptor master_;
  std::string path_;
  /// Kept open, since a master without any slave hears only errors.
  Descriptor slave_;
  Descriptor closings_;
};

}  // namespace mvdirigo
