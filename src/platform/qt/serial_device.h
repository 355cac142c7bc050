#pragma once

#include <sys/ioctl.h>

#include <filesystem>
#include <optional>
#include <span>
#include <string_view>

#include "platform/line_settings.h"
#include "platform/qt/lock_files.h"

namespace mvdirigo {

/// A serial device that this program has taken for itself, in every way by which programs keep each
/// other away: a lock file, `flock`, and the system's exclusive use. Letting go of it is its
/// destruction, which leaves the line's settings as they are and never waits long.
class SerialDevice {
 public:
  /// Whether `device` is a serial port at all, and not one of the system's consoles or a
  /// multiplexer of pseudo-terminals. Opens nothing.
  [[nodiscard]] static bool isOne(const std::filesystem::path& device);

  /// Opens the device that `lock` is for; the line's settings stay as they are. Throws
  /// `PortRefused`, and touches nothing of a device that another program holds.
  SerialDevice(const std::filesystem::path& device, HeldLock lock);
  SerialDevice(const SerialDevice&) = delete;
  SerialDevice& operator=(const SerialDevice&) = delete;
  ~SerialDevice();

  /// Sets the line up for bytes as they are, without handshaking. Throws `kInvalidPropertyValue`
  /// when the hardware's rate would be more than 3 % off, `kDeviceIo` when the device is gone.
  void apply(const LineSettings& line);

  /// Closes the device, and keeps its lock file for the next opening.
  [[nodiscard]] HeldLock closeButKeepLock() &&;

  /// A non-blocking file descriptor.
  [[nodiscard]] int handle() const { return descriptor_.number(); }

  enum class State { kPresent, kGone };
  struct Transfer {
    std::size_t count = 0;
    State state = State::kPresent;
  };
  /// Moves what there is, or what the line takes now.
  [[nodiscard]] Transfer read(std::span<char> buffer);
  [[nodiscard]] Transfer write(std::string_view bytes);

  /// Bytes that wait in the system's queues to be read, and to be sent. What an adapter holds is
  /// not counted.
  [[nodiscard]] int received() const { return count(FIONREAD); }
  [[nodiscard]] int queued() const { return count(TIOCOUTQ); }
  void discardInput();
  void discardOutput();

 private:
  int count(unsigned long queue) const;
  void takeForItself();
  void close();

  std::filesystem::path path_;
  HeldLock lock_;
  Descriptor descriptor_;
};

}  // namespace mvdirigo
