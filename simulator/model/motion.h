#pragma once

#include <map>
#include <optional>
#include <span>
#include <string_view>
#include <vector>

#include "simulator/model/sim_time.h"

namespace mvdirigo {

/// The error code of a reply, as a simulated controller gives it.
enum class ReplyCode { kNoError = 0, kInvalidCommand = 2, kInvalidOperand = 3, kBusy = 15 };

/// What a program may consist of. What is "kept only" is given back by a query, and does nothing.
struct Instruction {
  char letter;
  bool takes_operand;
  long least, most;
  const char* help;
};

/// What can be asked for by its place in the table.
struct Query {
  /// The letter of the instruction that sets the value, or where else it comes from.
  char source;
  const char* help;
};

/// A motor that runs small programs: it moves at constant velocity, and position and progress are
/// worked out when somebody asks. Positions are in steps, velocities in steps/s.
class Motion {
 public:
  /// Takes a program such as "gA1000M500A0M500G5R": loaded at once, and run if it ends in "R".
  [[nodiscard]] ReplyCode command(std::string_view text, SimTime now);
  void terminate(SimTime now);
  [[nodiscard]] bool busy(SimTime now);

  [[nodiscard]] static std::span<const Instruction> instructions();
  [[nodiscard]] static std::span<const Query> queries();

  /// The value of the query at `index` in the table; none beyond.
  [[nodiscard]] std::optional<long> query(long index, SimTime now);

 private:
  struct Step {
    char letter;
    long operand;
  };
  struct Loop {
    std::size_t first_step;
    long rounds_done;
  };

  [[nodiscard]] static ReplyCode parse(std::string_view text, std::vector<Step>& program);
  void advance(SimTime now);
  long target(const Step& step) const;
  SimTime duration(const Step& step) const;
  /// The position while the present step runs.
  long positionAt(SimTime now) const;
  void finish(const Step& step);

  std::vector<Step> program_;
  bool running_ = false;
  std::size_t next_step_ = 0;
  SimTime step_start_{};
  std::vector<Loop> loops_;

  long position_ = 0;
  long target_ = 0;
  std::map<char, long> settings_ = {{'V', 2000}, {'v', 100}, {'L', 1000}, {'j', 16},
                                    {'m', 50},   {'h', 10},  {'F', 0},    {'J', 0}};
};

}  // namespace mvdirigo
