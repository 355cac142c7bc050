#pragma once

#include <array>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>

#include "platform/platform.h"
#include "platform/qt/lock_files.h"
#include "platform/qt/serial_device.h"

namespace mvdirigo {

/// Where the system keeps what concerns serial ports.
struct PortFolders {
  std::filesystem::path devices = "/dev";
  std::filesystem::path locks = "/var/lock";
};

/// The serial devices of this computer by port number. Port n is the link
/// `$XDG_CONFIG_HOME/<application>/ports/comN`, else /dev/comN, else a device of a fixed table:
/// 1 to 4 /dev/ttyS0 to 3, 5 to 12 /dev/ttyUSB0 to 7, 13 to 16 /dev/ttyACM0 to 3.
///
/// A number that a link served stays with links while the link is missing, and one that opened an
/// adapter of the table stays with that adapter, by its name in /dev/serial/by-id, even when it
/// comes back as another device after a sleep: commands are not to reach another unit because a
/// cable fell out.
class PortDevices {
 public:
  explicit PortDevices(PortFolders folders = {})
      : folders_(std::move(folders)), lock_files_(folders_.locks) {}

  /// Takes the port's device against other programs; its line settings stay as they are. `kept` is
  /// the lock of an earlier opening, to be used again. Throws `PortRefused`: `kPortAlreadyOpen`
  /// when a program holds the device, `kInvalidPortNumber` when there is no such serial device,
  /// `kPermissionDenied`, `kInvalidPropertyValue` when the hardware lacks the rate, `kDeviceIo`.
  [[nodiscard]] std::unique_ptr<SerialDevice> take(int comm_port, const LineSettings& line,
                                                   std::optional<HeldLock> kept = {});

  /// What is known of a port. Opens nothing, because opening a port moves its modem lines.
  [[nodiscard]] PortDetails describe(int comm_port);

  /// Lets a number whose link is missing, and one whose device is another adapter's meanwhile, be
  /// the device of the table again.
  void forgetLinks();

 private:
  struct Port {
    /// The last link that stood for the number; empty for none.
    std::filesystem::path link;
    /// The name under which the adapter that was opened is found wherever it comes back.
    std::filesystem::path stable_name;
    /// Why the last opening was refused, where that shows only then; else empty.
    std::string refusal;
  };

  Port& at(int comm_port) { return ports_.at(static_cast<std::size_t>(comm_port)); }
  std::filesystem::path tableDevice(int comm_port) const;
  /// The name under which the port's device is to be found now; there may be no such device.
  std::filesystem::path nameOf(int comm_port);
  std::filesystem::path stableNameOf(const std::filesystem::path& device) const;
  std::unique_ptr<SerialDevice> takeDevice(const std::filesystem::path& device,
                                           const LineSettings& line, std::optional<HeldLock> kept);
  /// What stands in the way now, as far as it shows without an opening.
  std::string obstacleOf(const std::filesystem::path& device) const;

  PortFolders folders_;
  LockFiles lock_files_;
  std::array<Port, SerialPort::kHighestPort + 1> ports_;
};

}  // namespace mvdirigo
