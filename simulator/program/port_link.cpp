#include "simulator/program/port_link.h"

#include <unistd.h>

#include <cstdio>
#include <stdexcept>
#include <string>
#include <utility>

namespace mvdirigo {
namespace {

namespace fs = std::filesystem;

constexpr const char* kDevices = "/dev/pts";
/// Before the number of the process that took the device away. No device has such a name, while
/// the number of a device that is gone may become a terminal's.
const std::string kUnplugged = "unplugged-";

bool isInUse(const fs::path& target) {
  const std::string name = target.filename();
  if (name.starts_with(kUnplugged)) {
    return fs::exists("/proc/" + name.substr(kUnplugged.size()));
  }
  return fs::exists(target);
}

}  // namespace

PortLink::PortLink(fs::path path) : path_(std::move(path)) {
  const fs::file_status status = fs::symlink_status(path_);
  if (!fs::exists(status)) return;
  if (!fs::is_symlink(status) || fs::read_symlink(path_).parent_path() != kDevices) {
    throw std::runtime_error(path_.string() + " exists and is not ours; remove it first");
  }
  if (isInUse(fs::read_symlink(path_))) {
    throw std::runtime_error(path_.string() + " leads to " + fs::read_symlink(path_).string() +
                             ", which is in use; end its program or remove the link first");
  }
}

PortLink::~PortLink() {
  std::error_code ignored;
  if (isOurs()) fs::remove(path_, ignored);
}

bool PortLink::isOurs() const {
  std::error_code none;
  return !target_.empty() && fs::read_symlink(path_, none) == target_;
}

void PortLink::leadTo(const fs::path& device) {
  if (!target_.empty() && !isOurs() && fs::exists(fs::symlink_status(path_))) {
    std::fprintf(stderr, "%s was replaced and is left as it is\n", path_.c_str());
    return;
  }
  const fs::path made = path_.string() + ".new";
  try {
    fs::remove(made);
    fs::create_symlink(device, made);
    fs::rename(made, path_);
  } catch (const fs::filesystem_error& error) {
    throw std::runtime_error("can't make the link " + path_.string() + ": " +
                             error.code().message());
  }
  target_ = device;
}

void PortLink::leadNowhere() {
  leadTo(fs::path(kDevices) / (kUnplugged + std::to_string(getpid())));
}

}  // namespace mvdirigo
