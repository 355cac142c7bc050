#include <regex>

#include "platform/qt/port_devices.h"
#include "property.h"
#include "support/config_home.h"
#include "support/fault_number.h"

namespace fs = std::filesystem;

static const std::regex kSerial("/dev/(tty[A-Z].*|pts/[0-9]+)");

/// Whether `device` is what a name leads to, and nothing where that leads nowhere.
static bool leadsTo(const fs::path& name, const std::string& device) {
  std::error_code error;
  const fs::path target = fs::canonical(name, error);
  return error ? !fs::exists(device, error) : device == target;
}

/// Links of any target, in lines "name=target", stand for ports; what is no serial device is never
/// taken, and a number that a link served is no other device until it may be.
void mvdirigo::check(std::string_view input) {
  static const ConfigHome home;
  const fs::path link = home.path() / "d/com5", table = home.path() / "d/ttyUSB0";
  fs::remove_all(home.path() / "d");
  fs::create_directory(home.path() / "d");
  std::error_code error;
  while (!input.empty()) {
    std::string_view target = takeUntil('\n', input);
    std::string name(takeUntil('=', target));
    std::ranges::replace(name, '/', '-');
    fs::create_symlink(target, link.parent_path() / name, error);
  }
  PortDevices ports({link.parent_path(), link.parent_path()});
  const bool linked = fs::is_symlink(link);
  const std::string device = ports.describe(5).device;
  require(leadsTo(linked ? link : table, device), "a number has its device");
  if (!std::regex_match(device, kSerial)) {
    const std::string obstacle = ports.describe(5).obstacle;
    const bool there = fs::exists(device, error);
    require(obstacle == (there ? "It is not a serial port." : "There is no such device.") || error,
            "what is no serial device is told");
    require(faultNumber([&] { return ports.take(5, {}); }) == 8002 || error, "nor can it be taken");
  }
  fs::remove(link);
  require(leadsTo(linked ? link : table, ports.describe(5).device), "a link is waited for");
  ports.forgetLinks();
  require(leadsTo(table, ports.describe(5).device), "the table's device is back");
}
