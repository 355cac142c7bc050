#include "simulator/program/unit_text.h"

#include <algorithm>
#include <charconv>
#include <set>
#include <stdexcept>

#include "platform/serial_port.h"

namespace mvdirigo {
namespace {

[[noreturn]] void refuse(std::string_view value, const std::string& rule) {
  throw std::invalid_argument("\"" + std::string(value) + "\": " + rule);
}

int numberOr(std::string_view value, int otherwise) {
  int number = 0;
  const char* end = value.data() + value.size();
  const auto parsed = std::from_chars(value.data(), end, number);
  return parsed.ec == std::errc() && parsed.ptr == end ? number : otherwise;
}

struct Choice {
  std::string_view name;
  UnitProtocol protocol;
  std::string_view words;
};
constexpr Choice kProtocols[] = {{"dt", UnitProtocol::kDt, "DT"},
                                 {"oem", UnitProtocol::kOem, "OEM"},
                                 {"both", UnitProtocol::kBoth, "DT and OEM"}};

const Choice& choiceOf(UnitProtocol protocol) {
  return *std::find_if(std::begin(kProtocols), std::end(kProtocols),
                       [&](const Choice& choice) { return choice.protocol == protocol; });
}

void setProtocol(UnitOptions& unit, std::string_view value) {
  for (const Choice& choice : kProtocols) {
    if (choice.name == value) {
      unit.protocol = choice.protocol;
      return;
    }
  }
  refuse(value, "a protocol is dt, oem or both");
}

void set(PlacedUnit& unit, std::string_view key, std::string_view value) {
  UnitOptions& options = unit.options;
  if (key == "port") {
    unit.port = numberOr(value, 0);
    if (!SerialPort::isPort(unit.port)) refuse(value, "ports are numbered 1 to 16");
  } else if (key == "address") {
    const bool good = value.size() == 1 && value[0] > ' ' && value[0] < 0x7F;
    if (!good || value == "/" || value == "0") {
      refuse(value, "an address is one character, not \"/\" and not the host's \"0\"");
    }
    options.address = value[0];
  } else if (key == "protocol") {
    setProtocol(options, value);
  } else if (key == "baud") {
    options.baud = numberOr(value, 0);
    const auto rates = unitRates();
    if (std::find(rates.begin(), rates.end(), options.baud) == rates.end()) {
      refuse(value, "a unit's rate is 9600, 19200, 38400, 57600, 115200 or 230400");
    }
  } else if (key == "version") {
    options.version = value;
  } else if (key == "id") {
    const auto is_hex = value.find_first_not_of("0123456789ABCDEFabcdef") == std::string_view::npos;
    if (value.size() != 3 || !is_hex) refuse(value, "an ID has three hexadecimal digits");
    options.id = value;
  } else if (key == "firmware") {
    if (value != "valid" && value != "none") refuse(value, "firmware is valid or none");
    options.valid_firmware = value == "valid";
  } else {
    refuse(key, "a unit has port, address, protocol, baud, version, id and firmware");
  }
}

}  // namespace

PlacedUnit parseUnit(std::string_view text) {
  PlacedUnit unit;
  std::set<std::string_view> keys;
  while (!text.empty()) {
    const std::size_t end = std::min(text.find(','), text.size());
    const std::string_view entry = text.substr(0, end);
    text.remove_prefix(std::min(end + 1, text.size()));
    const std::size_t equals = entry.find('=');
    if (equals == std::string_view::npos) refuse(entry, "a unit is given as key=value,key=value");
    const std::string_view key = entry.substr(0, equals);
    set(unit, key, entry.substr(equals + 1));
    if (!keys.insert(key).second) refuse(entry, std::string(key) + " was given before");
  }
  return unit;
}

std::string unitText(const PlacedUnit& placed) {
  const UnitOptions& unit = placed.options;
  return "port=" + std::to_string(placed.port) + ",address=" + unit.address +
         ",protocol=" + std::string(choiceOf(unit.protocol).name) +
         ",baud=" + std::to_string(unit.baud) + ",version=" + unit.version + ",id=" + unit.id +
         ",firmware=" + (unit.valid_firmware ? "valid" : "none");
}

std::string describeUnit(const UnitOptions& unit) {
  return std::string("unit ") + unit.address + ", " + std::string(choiceOf(unit.protocol).words) +
         ", " + std::to_string(unit.baud) + " baud, " +
         (unit.valid_firmware ? "\"" + unit.version + "\"" : "no valid firmware") + ", ID " +
         unit.id;
}

}  // namespace mvdirigo
