#include "simulator/program/simulation.h"

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <map>
#include <sstream>
#include <stdexcept>
#include <system_error>

#include "simulator/model/update_image.h"

namespace mvdirigo {
namespace {

std::string readFile(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  std::ostringstream bytes;
  bytes << file.rdbuf();
  if (!file) throw std::runtime_error("can't read " + path);
  return bytes.str();
}

/// Throws when `path` can't be written; what is there stays.
void requireWritable(const std::string& path) {
  const bool is_new = !std::filesystem::exists(path);
  if (!std::ofstream(path, std::ios::app)) throw std::runtime_error("can't write " + path);
  if (is_new) std::filesystem::remove(path);
}

}  // namespace

Simulation::Simulation(const SimOptions& options) : options_(options) {
  if (!options_.check_image.empty()) {
    expected_image_ = imageOfUpdateFile(readFile(options_.check_image));
  }
  if (!options_.image_file.empty()) requireWritable(options_.image_file);
  std::map<int, std::vector<UnitOptions>> units_by_port;
  for (const int port : options_.empty_ports) units_by_port.try_emplace(port);
  for (const PlacedUnit& unit : options_.units) {
    units_by_port[unit.port].push_back(unit.options);
    units_by_port[unit.port].back().expected_image = expected_image_;
  }
  std::error_code error;
  std::filesystem::create_directories(options_.links, error);
  if (error) {
    throw std::runtime_error("can't make the folder " + options_.links + ": " + error.message());
  }
  for (const auto& [number, units] : units_by_port) addPort(number, units);
  for (PtyPort& port : ports_) port.plugIn();
  announce();
}

bool Simulation::finish(SimTime now) {
  for (PtyPort& port : ports_) {
    // Nobody is left to hear what the line still brings.
    static_cast<void>(port.bus().advance(now + std::chrono::minutes(1), 0));
  }
  if (!expected_image_) return true;
  if (!image_seen_) std::fprintf(stderr, "no image was received\n");
  return image_seen_ && !image_wrong_;
}

void Simulation::addPort(int number, const std::vector<UnitOptions>& units) {
  PtyPort::Options port{number, options_.links, units, options_.bus, {}, options_.verbose};
  if (options_.return_after_ms >= 0) {
    port.return_after = std::chrono::milliseconds(options_.return_after_ms);
  }
  SimulatedBus& bus = ports_.emplace_back(port).bus();
  for (std::size_t i = 0; i < bus.unitCount(); ++i) {
    bus.unit(i).onUpdateEnded = [this, number](const SimulatedUnit& unit) {
      reportImage(number, unit);
    };
  }
}

void Simulation::announce() const {
  std::fprintf(stderr, "movane-sim: simulated controllers, no real ones\n");
  for (const PtyPort& port : ports_) {
    const std::string where = port.link().string() + " -> " + port.device();
    for (std::size_t i = 0; i < port.bus().unitCount(); ++i) {
      std::fprintf(stderr, "%s: %s\n", where.c_str(),
                   describeUnit(port.bus().unit(i).options()).c_str());
    }
    if (port.bus().unitCount() == 0) std::fprintf(stderr, "%s: no unit\n", where.c_str());
  }
  const BusOptions& bus = options_.bus;
  for (const LineFault& fault : bus.faults) {
    std::fprintf(stderr, "fault %s\n", describeFault(fault).c_str());
  }
  std::fprintf(stderr, "%s, seed %u\n", bus.paced ? "paced" : "not paced", bus.seed);
  if (options_.command.empty()) std::fprintf(stderr, "Ctrl+C ends it\n");
}

void Simulation::reportImage(int port, const SimulatedUnit& unit) {
  std::string report = "port " + std::to_string(port) + " unit " + unit.options().address +
                       ": an update of " + std::to_string(unit.image().size()) + " bytes in " +
                       std::to_string(unit.pieces()) + " pieces";
  if (!options_.image_file.empty()) {
    std::ofstream file(options_.image_file, std::ios::binary);
    file << unit.image() << std::flush;
    report += (file ? ", written to " : ", not written to ") + options_.image_file;
  }
  if (expected_image_) {
    const bool matches = unit.image() == *expected_image_;
    image_seen_ = true;
    if (!matches) image_wrong_ = true;
    report += ", " + compareImages(unit.image(), *expected_image_) + (matches ? " " : " from ") +
              options_.check_image;
  }
  std::fprintf(stderr, "%s\n", report.c_str());
}

}  // namespace mvdirigo
