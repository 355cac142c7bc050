#include "simulator/model/simulated_bus.h"

#include <algorithm>
#include <utility>

namespace mvdirigo {

SimulatedBus::SimulatedBus(const std::vector<UnitOptions>& units, const BusOptions& options)
    : options_(options),
      faults_(options.faults, options.seed),
      units_(units.begin(), units.end()) {}

void SimulatedBus::setFaults(std::vector<LineFault> faults) {
  faults_ = LineFaults(std::move(faults), options_.seed);
  noise_left_ = 0;
}

void SimulatedBus::receive(char byte, int host_baud, SimTime now) {
  if (vanished_) return;
  ++host_bytes_;
  if (faults_.vanishesAt(host_bytes_)) {
    vanished_ = true;
    to_host_.clear();
    return;
  }
  bool heard_by_all = true;
  for (SimulatedUnit& unit : units_) {
    if (unit.baud() != host_baud) {
      heard_by_all = false;
    } else if (const auto reply = unit.receive(byte, now, faults_)) {
      answer(*reply, now);
    }
  }
  if (!heard_by_all && host_baud > 0 && faults_.garbageAtOtherRates()) {
    send(faults_.noise(), host_baud, now, options_.paced);
  }
}

void SimulatedBus::answer(const SimulatedUnit::Answer& answer, SimTime now) {
  const LineFaults::Outcome outcome = faults_.apply(answer.bytes, answer.piece);
  if (outcome.device_vanishes) {
    vanished_ = true;
    to_host_.clear();
    return;
  }
  for (const char byte : outcome.bytes) {
    send(byte, answer.baud, now + outcome.delay, options_.paced);
  }
  if (outcome.noise != 0) noise_left_ = outcome.noise;
}

void SimulatedBus::send(char byte, int baud, SimTime earliest, bool paced) {
  line_free_ = std::max(line_free_, earliest);
  if (paced) line_free_ += byteTime(baud);
  SimTime due = line_free_;
  if (const SimTime interval = options_.gather_interval; interval.count() > 0) {
    due += (interval - due % interval) % interval;
  }
  to_host_.push_back({byte, baud, due});
}

std::optional<SimTime> SimulatedBus::nextEvent() const {
  if (vanished_) return std::nullopt;
  std::optional<SimTime> next;
  if (!to_host_.empty()) next = to_host_.front().due;
  for (const SimulatedUnit& unit : units_) {
    const auto units_next = unit.nextEvent();
    if (units_next && (!next || *units_next < *next)) next = units_next;
  }
  return next;
}

std::string SimulatedBus::advance(SimTime now, int host_baud) {
  for (SimulatedUnit& unit : units_) unit.advance(now);
  std::string heard;
  while (!to_host_.empty() && to_host_.front().due <= now) {
    const ByteToHost sent = to_host_.front();
    to_host_.pop_front();
    if (sent.baud == host_baud) heard += sent.byte;
    // Noise keeps to the line's rate even where answers do not: it must leave time for others.
    if (to_host_.empty() && noise_left_ != 0) {
      send(faults_.noise(), sent.baud, sent.due, true);
      if (noise_left_ > 0) --noise_left_;
    }
  }
  return heard;
}

}  // namespace mvdirigo
