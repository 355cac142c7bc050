#pragma once

#include <string>
#include <string_view>

#include "simulator/model/simulated_unit.h"

namespace mvdirigo {

/// A unit as it is given on the command line: on which port, and what it is.
struct PlacedUnit {
  int port = 1;
  UnitOptions options;
};

/// Reads "key=value,key=value", the keys port, address, protocol, baud, version, id and firmware.
/// Throws std::invalid_argument that says what is wrong.
[[nodiscard]] PlacedUnit parseUnit(std::string_view text);

/// The unit as `parseUnit` reads it.
[[nodiscard]] std::string unitText(const PlacedUnit& placed);

/// The unit in words.
[[nodiscard]] std::string describeUnit(const UnitOptions& unit);

}  // namespace mvdirigo
