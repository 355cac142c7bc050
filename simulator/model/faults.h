#pragma once

#include <cstdint>
#include <optional>
#include <random>
#include <span>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "simulator/model/sim_time.h"

namespace mvdirigo {

enum class FaultKind {
  kSilent,
  kLate,
  kDrop,
  kDouble,
  kCorrupt,
  kGarbageBefore,
  kLostEtx,
  kBadChecksum,
  kEndless,
  kRefusePiece,
  kVanish,
  kOtherRateGarbage,
};

/// One way in which a line goes wrong.
struct LineFault {
  FaultKind kind;
  /// What `FaultType::help` says of it.
  long amount;
  /// The piece of an update whose answer is concerned, from 1; 0 for every answer.
  int piece = 0;
};

struct FaultType {
  FaultKind kind;
  const char* name;
  long default_amount;
  /// The default with a piece named: damage that may happen to any answer is certain for that one.
  long default_amount_at_piece;
  long largest_amount;
  const char* help;
};
[[nodiscard]] std::span<const FaultType> faultTypes();

/// Reads NAME[=AMOUNT][@PIECE]. Throws std::invalid_argument that says what is wrong.
[[nodiscard]] LineFault parseFault(std::string_view text);
[[nodiscard]] std::string describeFault(const LineFault& fault);

/// All that goes wrong on one line; the same seed gives the same course.
class LineFaults {
 public:
  LineFaults(std::vector<LineFault> faults, std::uint32_t seed)
      : faults_(std::move(faults)), random_(seed) {}

  /// What becomes of an answer on its way to the host.
  struct Outcome {
    std::string bytes;
    SimTime delay{};
    /// How many bytes of noise follow; -1 for no end of them.
    long noise = 0;
    bool device_vanishes = false;
  };
  [[nodiscard]] Outcome apply(std::string bytes, int piece);

  /// The number of the error with which a piece is refused, if it is.
  [[nodiscard]] std::optional<long> refusal(int piece) const;
  /// Whether the device vanishes when the host has sent so many bytes.
  [[nodiscard]] bool vanishesAt(long host_bytes) const;
  [[nodiscard]] bool garbageAtOtherRates() const;
  [[nodiscard]] char noise() { return static_cast<char>(0x80 | (random_() & 0x7F)); }

 private:
  void damage(const LineFault& fault, Outcome& outcome);
  bool happens(long percent) { return static_cast<long>(random_() % 100) < percent; }

  std::vector<LineFault> faults_;
  std::mt19937 random_;
};

}  // namespace mvdirigo
