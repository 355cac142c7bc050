#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "simulator/model/simulated_bus.h"
#include "simulator/program/unit_text.h"

namespace mvdirigo {

/// The exit code of a command line that asks for what can't be done.
inline constexpr int kWrongOption = 2;

/// What movane-sim is asked to do on its command line.
struct SimOptions {
  std::string links;
  std::vector<PlacedUnit> units;
  std::vector<int> empty_ports;
  BusOptions bus;
  /// In ms; below 0 a vanished device stays away.
  int return_after_ms = -1;
  std::string image_file;
  std::string check_image;
  bool verbose = false;
  std::vector<std::string> command;
};

/// Reads the command line, what follows "--" being the command. A request for help and a wrong
/// option end the program here, with exit code 0 and 2.
[[nodiscard]] SimOptions parseSimOptions(int argc, char** argv);

}  // namespace mvdirigo
