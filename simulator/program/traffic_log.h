#pragma once

#include <optional>
#include <string>
#include <utility>

#include "simulator/model/sim_time.h"

namespace mvdirigo {

/// The traffic of one line on standard error, with what belongs together in one row.
class TrafficLog {
 public:
  enum class Direction { kFromHost, kToHost };

  TrafficLog(std::string name, bool on) : name_(std::move(name)), on_(on) {}
  ~TrafficLog() { flush(); }
  TrafficLog(const TrafficLog&) = delete;
  TrafficLog& operator=(const TrafficLog&) = delete;

  void add(Direction direction, const std::string& bytes, SimTime now);
  [[nodiscard]] std::optional<SimTime> nextEvent() const;
  void advance(SimTime now);

 private:
  void flush();

  std::string name_;
  bool on_;
  Direction direction_ = Direction::kFromHost;
  std::string bytes_;
  SimTime first_{};
  SimTime last_{};
};

}  // namespace mvdirigo
