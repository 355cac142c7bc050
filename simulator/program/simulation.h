#pragma once

#include <list>
#include <optional>
#include <string>

#include "simulator/program/pty_port.h"
#include "simulator/program/sim_options.h"

namespace mvdirigo {

/// The controllers that were asked for on their ports, and what their updates brought.
class Simulation {
 public:
  /// Makes the devices and their links, and says on standard error what it simulates.
  /// Throws std::exception when that is not possible; then nothing of the user's was changed.
  explicit Simulation(const SimOptions& options);
  Simulation(const Simulation&) = delete;
  Simulation& operator=(const Simulation&) = delete;

  [[nodiscard]] std::list<PtyPort>& ports() { return ports_; }

  /// Ends the updates that still wait for pieces. Returns whether the images received, if any
  /// was to be checked, are those of the update file.
  [[nodiscard]] bool finish(SimTime now);

 private:
  void addPort(int number, const std::vector<UnitOptions>& units);
  void announce() const;
  void reportImage(int port, const SimulatedUnit& unit);

  SimOptions options_;
  std::optional<std::string> expected_image_;
  std::list<PtyPort> ports_;
  bool image_seen_ = false;
  bool image_wrong_ = false;
};

}  // namespace mvdirigo
