#include "property.h"
#include "simulator/model/simulated_bus.h"

using namespace mvdirigo;

/// Whether `bytes` end with a whole command to unit 1, in DT.
static bool endsDtCommand(std::string_view bytes) {
  if (!bytes.ends_with('\r')) return false;
  bytes.remove_suffix(1);
  bytes.remove_prefix(std::min(bytes.find_last_of("/\r"), bytes.size()));
  return bytes.starts_with("/1") && bytes.size() <= 257;
}

/// A unit, of which the first character tells what it is, answers what it should and nothing else.
/// Before a "~" comes a silence that ends an update.
void mvdirigo::check(std::string_view input) {
  const char kind = input.empty() ? 'b' : input.front();
  const std::string bytes = sometimesFlooding(input.substr(input.empty() ? 0 : 1));
  const bool oem = kind == 'o', dt = kind != 'b' && !oem;
  UnitOptions options;
  if (kind != 'b') options.protocol = oem ? UnitProtocol::kOem : UnitProtocol::kDt;
  options.valid_firmware = kind != '?';
  SimulatedBus bus({options}, {.paced = false});
  const SimulatedUnit& unit = bus.unit(0);
  std::size_t start = 0;  // of the commands, or of the image
  SimTime now{};
  for (std::size_t i = 0; i < bytes.size() && unit.baud() == 9600; ++i) {
    const bool was_updating = unit.updating();
    now += std::chrono::milliseconds(bytes[i] == '~' ? 4000 : 1);
    require(bus.advance(now, 9600).empty(), "a unit speaks when it is spoken to");
    const bool updating = unit.updating();
    if (was_updating && !updating) {
      require(unit.image() == bytes.substr(start, (i - start) / 6 * 6),
              "the image is what was sent");
      start = i;
    }
    bus.receive(bytes[i], 9600, now);
    const std::string said = bus.advance(now, 9600);
    const auto since = std::string_view(bytes).substr(start, i + 1 - start);
    if (updating) {
      require(said == (since.size() % 6 == 0 ? "\r" : ""), "every six bytes are acknowledged");
    } else {
      require(said.size() < 40 && (said[0] != 2 || sumOf(said) == 0), "an answer is a good one");
      require(!dt || said.empty() != endsDtCommand(since), "exactly the commands are answered");
      require(!oem || said.empty() || sumOf(since.substr(since.rfind('\x02', i - start - 1))) == 0,
              "only good frames are answered");
      if (unit.updating()) start = i + 1;
    }
  }
}
