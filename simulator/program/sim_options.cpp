#include "simulator/program/sim_options.h"

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <iostream>
#include <limits>
#include <random>
#include <set>
#include <stdexcept>

#include <CLI/CLI.hpp>

#include "platform/serial_port.h"
#include "platform/version.h"
#include "simulator/program/command_table.h"

namespace mvdirigo {
namespace {

namespace fs = std::filesystem;

/// The options as they are typed.
struct Typed {
  SimOptions options;
  std::vector<std::string> units;
  std::vector<std::string> faults;
  int gather_ms = 0;
  bool no_line_feed = false;
};

std::string defaultLinkFolder() {
  const char* config = std::getenv("XDG_CONFIG_HOME");
  const char* home = std::getenv("HOME");
  const fs::path base =
      config && *config ? fs::path(config) : fs::path(home ? home : ".") / ".config";
  return base / "Tolvaris MVDirigo" / "ports";
}

/// A check for the parser: the message of what `parse` throws, or nothing.
template <class Parse>
std::string complaint(Parse parse, const std::string& text) {
  try {
    static_cast<void>(parse(text));
    return {};
  } catch (const std::invalid_argument& error) {
    return error.what();
  }
}

/// A flag that has no value: the parser would take "=no" behind it for one.
void addFlag(CLI::App& app, const std::string& name, bool& flag, const std::string& help) {
  app.add_flag(name, flag, help)->check([](const std::string& value) {
    return value == "true" ? std::string() : "takes no value, but was given \"" + value + '"';
  });
}

std::string faultHelp() {
  std::string help =
      "Faults, as NAME[=AMOUNT][@PIECE]; @PIECE limits one to a piece of an update. The amount\n"
      "without one is in brackets; percentages go to 100, others to 10000000:\n";
  for (const FaultType& type : faultTypes()) {
    help += "  " + std::string(type.name) + ": " + type.help;
    if (type.default_amount != 0) {
      help += " (" + std::to_string(type.default_amount);
      if (type.default_amount_at_piece != type.default_amount) {
        help += ", with @PIECE " + std::to_string(type.default_amount_at_piece);
      }
      help += ")";
    }
    help += "\n";
  }
  return help;
}

constexpr const char* kExamples = R"(
Examples:
  movane-sim
      one unit on port 1, until Ctrl+C
  movane-sim --paced --unit port=1 --unit port=2,address=3,baud=19200 -- mvdirigo
      the console with a unit on each of two ports; both end together
  movane-sim --fault drop --fault late=300 -- mvdirigo
      a bad line: bytes are lost, and replies come late
  movane-sim --check-image new.zrf -- mvdirigo
      to try the update with new.zrf; ends with 0 when it arrived byte for byte

Behind -- stands a command to run: movane-sim starts before it, ends with it, and exits with its
exit code. Without a command, Ctrl+C ends movane-sim.
)";

void describeDevices(CLI::App& app, Typed& typed) {
  SimOptions& options = typed.options;
  app.add_option("--links", options.links, "Folder for the links com1 to com16")
      ->type_name("DIR")
      ->capture_default_str();
  app.add_option("--unit", typed.units,
                 "A unit, as key=value,...: port=1..16, address=CHARACTER,\n"
                 "protocol=dt|oem|both, baud=9600 to 230400, version=TEXT without\n"
                 "commas, id=HHH, firmware=valid|none. May be repeated; without units and empty "
                 "ports there\n"
                 "is one. What isn't given is\n" +
                     unitText({}))
      ->type_name("KEY=VALUE,...")
      ->expected(1)
      ->take_all()
      ->check([](const std::string& text) { return complaint(parseUnit, text); });
  app.add_option("--empty-port", options.empty_ports, "A port that no unit is on. May be repeated")
      ->type_name("PORT")
      ->expected(1)
      ->take_all()
      ->check(CLI::Range(SerialPort::kLowestPort, SerialPort::kHighestPort));
  app.add_option("--image-file", options.image_file,
                 "Where to write an image that was received; else it is kept nowhere")
      ->type_name("PATH");
  app.add_option("--check-image", options.check_image,
                 "Update file that every image received is compared with; unless one came\n"
                 "and all match, the exit code is 1")
      ->type_name("FILE")
      ->check(CLI::ExistingFile);
}

void describeLine(CLI::App& app, Typed& typed) {
  SimOptions& options = typed.options;
  app.add_option("--fault", typed.faults, "What goes wrong on all lines. May be repeated")
      ->type_name("NAME[=AMOUNT][@PIECE]")
      ->expected(1)
      ->take_all()
      ->check([](const std::string& text) { return complaint(parseFault, text); });
  app.add_option("--seed", options.bus.seed,
                 "Seed of the faults, to run again what was seen; else one is drawn, and told")
      ->type_name("NUMBER")
      ->check(CLI::Range(std::uint32_t{0}, std::numeric_limits<std::uint32_t>::max()));
  addFlag(app, "--paced", options.bus.paced,
          "Bytes take their time on the line, both ways; else they take none");
  app.add_option("--gather", typed.gather_ms,
                 "Bytes reach the host in bursts of so many ms; else each when it comes")
      ->type_name("MS")
      ->check(CLI::Range(1, 1000));
  app.add_option("--return-after", options.return_after_ms,
                 "A device that vanished comes back after so many ms; else it stays away")
      ->type_name("MS")
      ->check(CLI::Range(0, 10'000'000));
  addFlag(app, "--no-line-feed", typed.no_line_feed,
          "DT answers end in CR alone; else in CR and LF");
  addFlag(app, "--verbose", options.verbose, "Log the traffic to standard error");
}

void describeOptions(CLI::App& app, Typed& typed) {
  app.set_version_flag("--version", std::string("movane-sim ") + kVersion);
  app.add_flag_callback(
      "--commands",
      [] {
        std::cout << commandTable();
        throw CLI::Success();
      },
      "Print the commands that a unit understands and exit");
  describeDevices(app, typed);
  describeLine(app, typed);
  app.footer(faultHelp() + kExamples);
}

/// Two units that answer the same call would talk at once.
void refuseTwins(const std::vector<PlacedUnit>& units) {
  std::set<std::pair<int, char>> places;
  for (const PlacedUnit& unit : units) {
    if (places.emplace(unit.port, unit.options.address).second) continue;
    throw CLI::ValidationError("--unit", std::string("there are two units ") +
                                             unit.options.address + " on port " +
                                             std::to_string(unit.port));
  }
}

void settle(Typed& typed) {
  SimOptions& options = typed.options;
  if (typed.units.empty() && options.empty_ports.empty()) typed.units.push_back("port=1");
  for (const std::string& text : typed.units) {
    options.units.push_back(parseUnit(text));
    options.units.back().options.line_feed = !typed.no_line_feed;
  }
  refuseTwins(options.units);
  for (const std::string& text : typed.faults) options.bus.faults.push_back(parseFault(text));
  options.bus.gather_interval = std::chrono::milliseconds(typed.gather_ms);
}

}  // namespace

SimOptions parseSimOptions(int argc, char** argv) {
  Typed typed;
  typed.options.links = defaultLinkFolder();
  typed.options.bus.paced = false;
  typed.options.bus.seed = std::random_device()();
  CLI::App app("Simulated Movane controllers on pseudo-terminals, linked as numbered serial ports.",
               "movane-sim");
  app.failure_message([](const CLI::App*, const CLI::Error& error) {
    return std::string("movane-sim: ") + error.what() + '\n';
  });
  describeOptions(app, typed);

  char** const end = argv + argc;
  char** const separator = std::find(argv, end, std::string_view("--"));
  if (separator != end) typed.options.command.assign(separator + 1, end);
  try {
    app.parse(static_cast<int>(separator - argv), argv);
    settle(typed);
  } catch (const CLI::ParseError& error) {
    const int code = app.exit(error);
    throw NothingToRun{code == 0 ? EXIT_SUCCESS : kWrongOption};
  }
  return typed.options;
}

}  // namespace mvdirigo
