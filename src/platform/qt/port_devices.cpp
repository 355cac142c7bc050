#include "platform/qt/port_devices.h"

#include <fcntl.h>
#include <grp.h>
#include <signal.h>
#include <sys/file.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <fstream>
#include <sstream>
#include <string>
#include <utility>

#include <QCoreApplication>
#include <QStandardPaths>

namespace mvdirigo {
namespace {

namespace fs = std::filesystem;

fs::path linkFolder() {
  const auto config = QStandardPaths::writableLocation(QStandardPaths::GenericConfigLocation);
  return fs::path(config.toStdString()) / QCoreApplication::applicationName().toStdString() /
         "ports";
}

/// The device or the link to it that stands for a port, whether it exists or not.
fs::path deviceOf(const fs::path& name) {
  std::error_code error;
  const fs::path device = fs::canonical(name, error);
  if (!error) return device;
  const fs::path missing = fs::read_symlink(name, error);
  return error ? name : name.parent_path() / missing;
}

std::string firstLine(const fs::path& file) {
  std::string line;
  std::getline(std::ifstream(file), line);
  return line;
}

bool isSerialDevice(const struct stat& node) {
  if (!S_ISCHR(node.st_mode)) return false;
  const fs::path entry = "/sys/dev/char/" + std::to_string(major(node.st_rdev)) + ':' +
                         std::to_string(minor(node.st_rdev));
  std::error_code error;
  // Pseudo-terminals have no entry.
  if (!fs::exists(entry, error)) return true;
  return fs::read_symlink(entry / "subsystem", error).filename() == "tty";
}

/// A process that holds a lock on a device, or 0.
using ProcessId = pid_t;

/// The process that locked `device` with the lock file of old, which Qt writes too.
ProcessId lockFileHolder(const fs::path& device) {
  std::string name = device.lexically_relative("/dev").string();
  std::replace(name.begin(), name.end(), '/', '_');
  ProcessId holder = 0;
  std::ifstream("/var/lock/LCK.." + name) >> holder;
  const bool alive = holder > 0 && (kill(holder, 0) == 0 || errno == EPERM);
  return alive ? holder : 0;
}

/// The process that locked the node with `flock`, from the system's table of locks.
ProcessId flockHolder(const struct stat& node) {
  char inode[64];
  std::snprintf(inode, sizeof inode, "%02x:%02x:%lu", major(node.st_dev), minor(node.st_dev),
                static_cast<unsigned long>(node.st_ino));
  std::ifstream locks("/proc/locks");
  for (std::string line; std::getline(locks, line);) {
    std::istringstream fields(line);
    std::string number, kind, strictness, access, locked;
    ProcessId holder = 0;
    fields >> number >> kind >> strictness >> access >> holder >> locked;
    if (kind == "FLOCK" && locked == inode) return holder;
  }
  return 0;
}

std::string inUseText(ProcessId holder) {
  if (holder == getpid()) return "It is in use by this program.";
  const std::string name =
      holder > 0 ? firstLine("/proc/" + std::to_string(holder) + "/comm") : std::string();
  return "It is in use by " + (name.empty() ? "another program" : "the program " + name) + '.';
}

std::string noPermissionText(const struct stat& node) {
  constexpr mode_t kReadAndWrite = S_IRGRP | S_IWGRP;
  const group* may = getgrgid(node.st_gid);
  std::string text = "You have no permission to use it.";
  if ((node.st_mode & kReadAndWrite) == kReadAndWrite && node.st_gid != 0 && may) {
    text += std::string(" Add yourself to the group \"") + may->gr_name + "\" and log in again.";
  }
  return text;
}

/// What USB adapters say of themselves; empty for other devices.
std::string hardwareOf(const fs::path& device) {
  std::error_code error;
  fs::path part = fs::canonical("/sys/class/tty" / device.filename() / "device", error);
  if (error) return {};
  for (; part.has_relative_path(); part = part.parent_path()) {
    if (const std::string product = firstLine(part / "product"); !product.empty()) {
      const std::string maker = firstLine(part / "manufacturer");
      return maker.empty() ? product : maker + ' ' + product;
    }
  }
  return {};
}

std::string obstacleOf(const fs::path& device, const std::optional<Fault>& last_refusal) {
  struct stat node {};
  if (stat(device.c_str(), &node) != 0) return "There is no such device.";
  if (!isSerialDevice(node)) return "It is not a serial port.";
  // The system has nodes for more ports than the computer; those have a chip of type 0.
  if (firstLine("/sys/class/tty" / device.filename() / "type") == "0") {
    return "There is no hardware behind this device.";
  }
  if (access(device.c_str(), R_OK | W_OK) != 0) return noPermissionText(node);
  if (const ProcessId holder = lockFileHolder(device)) return inUseText(holder);
  if (const ProcessId holder = flockHolder(node)) return inUseText(holder);
  if (last_refusal == Fault::kPortAlreadyOpen) return inUseText(0);
  if (last_refusal) return "It does not work as a serial port.";
  return {};
}

Fault openingFault(int error_number) {
  switch (error_number) {
    case ENOENT:
    case ENOTDIR:
    case ELOOP:
    case ENODEV:
    case ENXIO:
    case ENOTTY:
      return Fault::kInvalidPortNumber;
    case EACCES:
    case EPERM:
      return Fault::kPermissionDenied;
    case EBUSY:
    case EWOULDBLOCK:
      return Fault::kPortAlreadyOpen;
    default:
      return Fault::kDeviceIo;
  }
}

TakenDevice takeDevice(const fs::path& device) {
  const auto require = [](bool succeeded) {
    if (!succeeded) throw RuntimeError(openingFault(errno));
  };
  struct stat node {};
  require(stat(device.c_str(), &node) == 0);
  if (!isSerialDevice(node)) throw RuntimeError(Fault::kInvalidPortNumber);
  const ProcessId holder = lockFileHolder(device);
  if (holder != 0 && holder != getpid()) throw RuntimeError(Fault::kPortAlreadyOpen);

  TakenDevice taken(device, open(device.c_str(), O_RDWR | O_NOCTTY | O_NONBLOCK | O_CLOEXEC));
  require(taken.handle() >= 0);
  require(isatty(taken.handle()) == 1);
  int exclusive = 0;
  // The system itself turns only ordinary users away from a port in exclusive use.
  if (ioctl(taken.handle(), TIOCGEXCL, &exclusive) == 0 && exclusive != 0) {
    throw RuntimeError(Fault::kPortAlreadyOpen);
  }
  require(flock(taken.handle(), LOCK_EX | LOCK_NB) == 0);
  return taken;
}

}  // namespace

TakenDevice::TakenDevice(TakenDevice&& other) noexcept
    : path_(std::move(other.path_)), handle_(std::exchange(other.handle_, -1)) {}

TakenDevice::~TakenDevice() {
  if (handle_ >= 0) close(handle_);
}

fs::path PortDevices::nameOf(int comm_port) {
  const std::string link = "com" + std::to_string(comm_port);
  for (const fs::path& folder : {linkFolder(), fs::path("/dev")}) {
    std::error_code error;
    // A link to a device that is unplugged counts: the number isn't another device's meanwhile.
    if (fs::exists(fs::symlink_status(folder / link, error))) return folder / link;
  }
  if (comm_port <= 4) return "/dev/ttyS" + std::to_string(comm_port - 1);
  if (comm_port <= 12) return "/dev/ttyUSB" + std::to_string(comm_port - 5);
  return "/dev/ttyACM" + std::to_string(comm_port - 13);
}

TakenDevice PortDevices::take(int comm_port, const fs::path& name) {
  auto& refusal = refusals_.at(static_cast<std::size_t>(comm_port));
  try {
    refusal.reset();
    return takeDevice(deviceOf(name));
  } catch (const RuntimeError& error) {
    refusal = error.fault();
    throw;
  }
}

PortDetails PortDevices::describe(int comm_port) const {
  const fs::path device = deviceOf(nameOf(comm_port));
  return {device.string(), hardwareOf(device),
          obstacleOf(device, refusals_.at(static_cast<std::size_t>(comm_port)))};
}

}  // namespace mvdirigo
