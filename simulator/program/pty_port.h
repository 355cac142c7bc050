#pragma once

#include <deque>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "simulator/model/simulated_bus.h"
#include "simulator/program/port_link.h"
#include "simulator/program/pty.h"
#include "simulator/program/traffic_log.h"

namespace mvdirigo {

/// One numbered port of movane-sim: simulated controllers behind a pseudo-terminal, which a link
/// "com<number>" in a folder leads to.
class PtyPort {
 public:
  struct Options {
    int number = 1;
    std::filesystem::path link_folder;
    std::vector<UnitOptions> units;
    BusOptions bus;
    /// How long a vanished device stays away; none for ever.
    std::optional<SimTime> return_after;
    bool verbose = false;
  };

  /// Throws std::runtime_error when the link's place is taken.
  explicit PtyPort(const Options& options);
  PtyPort(const PtyPort&) = delete;
  PtyPort& operator=(const PtyPort&) = delete;

  [[nodiscard]] SimulatedBus& bus() { return bus_; }
  [[nodiscard]] const SimulatedBus& bus() const { return bus_; }
  [[nodiscard]] const std::filesystem::path& link() const { return link_.path(); }
  [[nodiscard]] std::string device() const { return pty_ ? pty_->path() : std::string(); }

  /// Makes the device and lets the link lead to it. To be called when every port has found its
  /// link's place free: a new device may get the number that an old link has.
  /// Throws std::system_error.
  void plugIn();

  /// What to poll for input; -1 while there is nothing to read or no room for it.
  [[nodiscard]] int pollFd() const;
  void readable(SimTime now);

  /// What to poll for hosts that close the device; -1 while there is no device, and while what
  /// such a host may have left behind is still to be looked for.
  [[nodiscard]] int closingsFd() const;
  void closed(SimTime now);

  [[nodiscard]] std::optional<SimTime> nextEvent() const;
  void advance(SimTime now);

 private:
  struct ByteFromHost {
    char byte;
    int baud;
    SimTime due;
  };

  void unplug();
  int baudOfInput();
  void toHost(const std::string& bytes, SimTime now);

  Options options_;
  PortLink link_;
  SimulatedBus bus_;
  std::optional<Pty> pty_;
  std::optional<SimTime> returns_at_;
  std::optional<SimTime> looks_for_abandoned_use_at_;
  std::deque<ByteFromHost> from_host_;
  /// Up to when the line's traffic has happened.
  SimTime line_time_{};
  int last_baud_ = 0;
  TrafficLog log_;
};

}  // namespace mvdirigo
