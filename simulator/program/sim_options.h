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

/// What is thrown for a command line with which there is nothing to run: it asks for help, or for
/// what can't be done, and has been answered.
struct NothingToRun {
  int exit_code;
};

/// Reads the command line, what follows "--" being the command. Throws `NothingToRun`.
[[nodiscard]] SimOptions parseSimOptions(int argc, char** argv);

}  // namespace mvdirigo
