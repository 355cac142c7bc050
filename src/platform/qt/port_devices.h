#pragma once

#include <array>
#include <filesystem>
#include <optional>

#include "platform/platform.h"
#include "platform/runtime_error.h"

namespace mvdirigo {

/// A serial device that this program has taken for itself; letting go of it is its destruction.
class TakenDevice {
 public:
  TakenDevice(std::filesystem::path path, int handle) : path_(std::move(path)), handle_(handle) {}
  TakenDevice(TakenDevice&& other) noexcept;
  TakenDevice& operator=(TakenDevice&&) = delete;
  ~TakenDevice();

  const std::filesystem::path& path() const { return path_; }
  /// An open, non-blocking file descriptor of the device.
  int handle() const { return handle_; }

 private:
  std::filesystem::path path_;
  int handle_;
};

/// The serial devices of this computer by port number. Port n is the link
/// `$XDG_CONFIG_HOME/<application>/ports/comN`, else `/dev/comN`, else a device of a fixed table:
/// 1 to 4 /dev/ttyS0 to 3, 5 to 12 /dev/ttyUSB0 to 7, 13 to 16 /dev/ttyACM0 to 3.
class PortDevices {
 public:
  /// The name under which the port's device is to be found now; there may be no such device.
  static std::filesystem::path nameOf(int comm_port);

  /// Takes the device `name` of a port against other programs; its line settings stay as they are.
  /// Throws `kPortAlreadyOpen` when a program holds it, `kInvalidPortNumber` when there is no such
  /// serial device, `kPermissionDenied`, or `kDeviceIo`.
  TakenDevice take(int comm_port, const std::filesystem::path& name);

  /// What is known of a port. Opens nothing, because opening a port moves its modem lines.
  PortDetails describe(int comm_port) const;

 private:
  /// Why a port could not be taken the last time; some holders show only then.
  std::array<std::optional<Fault>, SerialPort::kHighestPort + 1> refusals_;
};

}  // namespace mvdirigo
