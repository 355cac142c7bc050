#pragma once

#include <deque>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "simulator/pty.h"
#include "simulator/simulated_bus.h"
#include "simulator/traffic_log.h"

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

  /// Throws std::system_error or std::runtime_error when the device can't be offered.
  explicit PtyPort(const Options& options);
  ~PtyPort() { removeDevice(); }
  PtyPort(const PtyPort&) = delete;
  PtyPort& operator=(const PtyPort&) = delete;

  int number() const { return options_.number; }
  SimulatedBus& bus() { return bus_; }
  std::filesystem::path link() const;
  std::string device() const { return pty_ ? pty_->path() : std::string(); }

  /// What to poll for input; -1 while there is nothing to read or no room for it.
  int pollFd() const;
  void readable(SimTime now);

  std::optional<SimTime> nextEvent() const;
  void advance(SimTime now);

 private:
  struct ByteFromHost {
    char byte;
    int baud;
    SimTime due;
  };

  void offerDevice();
  void removeDevice();
  int baudOfInput();
  void toHost(const std::string& bytes, SimTime now);

  Options options_;
  SimulatedBus bus_;
  std::optional<Pty> pty_;
  std::optional<SimTime> returns_at_;
  std::deque<ByteFromHost> from_host_;
  /// Up to when the line's traffic has happened.
  SimTime line_time_{};
  int last_baud_ = 0;
  TrafficLog log_;
};

}  // namespace mvdirigo
