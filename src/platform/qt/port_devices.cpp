#include "platform/qt/port_devices.h"

#include <grp.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
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
  fs::path device = fs::canonical(name, error);
  if (!error) return device;
  const fs::path missing = fs::read_symlink(name, error);
  return error ? name : name.parent_path() / missing;
}

std::string firstLine(const fs::path& file) {
  std::string line;
  std::getline(std::ifstream(file), line);
  return line;
}

/// The process that locked the node with `flock`, from the system's table of locks.
pid_t flockHolder(const struct stat& node) {
  char inode[64];
  std::snprintf(inode, sizeof inode, "%02x:%02x:%lu", major(node.st_dev), minor(node.st_dev),
                static_cast<unsigned long>(node.st_ino));
  std::ifstream locks("/proc/locks");
  for (std::string line; std::getline(locks, line);) {
    std::istringstream fields(line);
    std::string number, kind, strictness, access, locked;
    pid_t holder = 0;
    fields >> number >> kind >> strictness >> access >> holder >> locked;
    if (kind == "FLOCK" && locked == inode) return holder;
  }
  return 0;
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

/// The system's folder on the USB adapter that a device belongs to; empty for other devices.
fs::path adapterOf(const fs::path& device) {
  std::error_code error;
  fs::path part = fs::canonical("/sys/class/tty" / device.filename() / "device", error);
  if (error) return {};
  while (part.has_relative_path() && !fs::exists(part / "product", error)) {
    part = part.parent_path();
  }
  return part.has_relative_path() ? part : fs::path();
}

/// What USB adapters say of themselves; empty for other devices.
std::string hardwareOf(const fs::path& device) {
  const fs::path adapter = adapterOf(device);
  if (adapter.empty()) return {};
  const std::string maker = firstLine(adapter / "manufacturer");
  return (maker.empty() ? "" : maker + ' ') + firstLine(adapter / "product");
}

bool isThere(const fs::path& name) {
  std::error_code error;
  // A link to a device that is unplugged counts: the number isn't another device's meanwhile.
  // So does one that can't be looked at.
  return fs::symlink_status(name, error).type() != fs::file_type::not_found;
}

}  // namespace

std::unique_ptr<SerialDevice> PortDevices::take(int comm_port, const LineSettings& line,
                                                std::optional<HeldLock> kept) {
  Port& port = at(comm_port);
  port.refusal.clear();
  const fs::path device = deviceOf(nameOf(comm_port));
  try {
    auto taken = takeDevice(device, line, std::move(kept));
    if (port.link.empty()) port.stable_name = stableNameOf(device);
    return taken;
  } catch (const PortRefused& refusal) {
    if (obstacleOf(device).empty()) {
      port.refusal =
          refusal.reason().empty() ? "It does not work as a serial port." : refusal.reason();
    }
    throw;
  }
}

std::unique_ptr<SerialDevice> PortDevices::takeDevice(const fs::path& device,
                                                      const LineSettings& line,
                                                      std::optional<HeldLock> kept) {
  struct stat node {};
  if (stat(device.c_str(), &node) != 0) throw PortRefused(openingFault(errno), {});
  if (!SerialDevice::isOne(device)) throw PortRefused(Fault::kInvalidPortNumber, {});
  const bool lock_fits = kept && kept->file() == lock_files_.fileOf(device);
  auto taken = std::make_unique<SerialDevice>(
      device, lock_fits ? std::move(*kept) : lock_files_.take(device));
  taken->apply(line);
  return taken;
}

PortDetails PortDevices::describe(int comm_port) {
  const fs::path device = deviceOf(nameOf(comm_port));
  std::string obstacle = obstacleOf(device);
  if (obstacle.empty()) obstacle = at(comm_port).refusal;
  return {device.string(), hardwareOf(device), std::move(obstacle)};
}

void PortDevices::forgetLinks() {
  for (int number = SerialPort::kLowestPort; number <= SerialPort::kHighestPort; ++number) {
    Port& port = at(number);
    port.link.clear();
    if (isThere(tableDevice(number))) port.stable_name.clear();
  }
}

// README.md and the manual page tell the table to users.
fs::path PortDevices::tableDevice(int comm_port) const {
  if (comm_port <= 4) return folders_.devices / ("ttyS" + std::to_string(comm_port - 1));
  if (comm_port <= 12) return folders_.devices / ("ttyUSB" + std::to_string(comm_port - 5));
  return folders_.devices / ("ttyACM" + std::to_string(comm_port - 13));
}

fs::path PortDevices::nameOf(int comm_port) {
  Port& port = at(comm_port);
  const std::string link = "com" + std::to_string(comm_port);
  for (const fs::path& folder : {linkFolder(), folders_.devices}) {
    if (!isThere(folder / link)) continue;
    port.link = folder / link;
    return port.link;
  }
  if (!port.link.empty()) return port.link;
  return port.stable_name.empty() ? tableDevice(comm_port) : port.stable_name;
}

fs::path PortDevices::stableNameOf(const fs::path& device) const {
  // Adapters of one model that have no serial number share one name, which stands for the last one
  // plugged in.
  const fs::path adapter = adapterOf(device);
  if (!adapter.empty() && firstLine(adapter / "serial").empty()) return {};
  std::error_code error;
  for (const auto& entry : fs::directory_iterator(folders_.devices / "serial/by-id", error)) {
    if (fs::canonical(entry.path(), error) == device) return entry.path();
  }
  return {};
}

std::string PortDevices::obstacleOf(const fs::path& device) const {
  struct stat node {};
  if (stat(device.c_str(), &node) != 0) {
    return errno == ENOENT || errno == ENOTDIR
               ? "There is no such device."
               : "It can't be looked at (" + std::string(std::strerror(errno)) + ").";
  }
  if (!SerialDevice::isOne(device)) return "It is not a serial port.";
  // The system has nodes for more ports than the computer; those have a chip of type 0.
  if (firstLine("/sys/class/tty" / device.filename() / "type") == "0") {
    return "There is no hardware behind this device.";
  }
  if (access(device.c_str(), R_OK | W_OK) != 0) return noPermissionText(node);
  if (std::string text = lock_files_.obstacle(lock_files_.fileOf(device)); !text.empty()) {
    return text;
  }
  const pid_t holder = flockHolder(node);
  return holder != 0 ? inUseText(holder) : std::string();
}

}  // namespace mvdirigo
