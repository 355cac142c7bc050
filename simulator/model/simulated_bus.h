#pragma once

#include <cstdint>
#include <deque>
#include <vector>

#include "simulator/model/faults.h"
#include "simulator/model/simulated_line.h"
#include "simulator/model/simulated_unit.h"

namespace mvdirigo {

struct BusOptions {
  /// Whether bytes to the host take their time on the line, or arrive at once.
  bool paced = true;
  /// Adapters hand over what they gathered at such intervals; 0 for every byte as it comes.
  SimTime gather_interval{};
  std::vector<LineFault> faults;
  std::uint32_t seed = 1;
};

/// Simulated controllers on one serial line.
class SimulatedBus : public SimulatedLine {
 public:
  /// Without units the line is silent.
  explicit SimulatedBus(const std::vector<UnitOptions>& units, const BusOptions& options = {});
  SimulatedBus(const SimulatedBus&) = delete;
  SimulatedBus& operator=(const SimulatedBus&) = delete;

  void receive(char byte, int host_baud, SimTime now) override;
  [[nodiscard]] std::optional<SimTime> nextEvent() const override;
  [[nodiscard]] std::string advance(SimTime now, int host_baud) override;
  [[nodiscard]] bool vanished() const override { return vanished_; }

  /// Brings a vanished device back, with its units as they were.
  void restore() { vanished_ = false; }

  /// What goes wrong from the next answer on, in place of all that did until now.
  void setFaults(std::vector<LineFault> faults);

  [[nodiscard]] SimulatedUnit& unit(std::size_t index) { return units_.at(index); }
  [[nodiscard]] const SimulatedUnit& unit(std::size_t index) const { return units_.at(index); }
  [[nodiscard]] std::size_t unitCount() const { return units_.size(); }

 private:
  struct ByteToHost {
    char byte;
    int baud;
    SimTime due;
  };

  void answer(const SimulatedUnit::Answer& answer, SimTime now);
  void send(char byte, int baud, SimTime earliest, bool paced);

  BusOptions options_;
  LineFaults faults_;
  std::vector<SimulatedUnit> units_;
  std::deque<ByteToHost> to_host_;
  /// When the line has carried all of `to_host_`.
  SimTime line_free_{};
  long noise_left_ = 0;
  long host_bytes_ = 0;
  bool vanished_ = false;
};

}  // namespace mvdirigo
