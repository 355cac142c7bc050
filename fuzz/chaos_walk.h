#pragma once

#include <cstdint>
#include <map>
#include <vector>

#include <QString>

namespace mvdirigo {

/// Something that happens: an act, the name of a control that is used, or so many ms that pass.
struct Step {
  QString act;
  /// What else is random about it.
  std::uint32_t choice;
};
using Steps = std::vector<Step>;

/// How far the walk got, in memory that outlives the process that walks.
struct Report {
  /// Of the life under way.
  std::uint32_t seed = 0;
  std::uint64_t steps = 0;
  /// Whether every step is said in words.
  bool tell = false;
  const char* broken_rule = "";
};

/// How often things happened in this process.
inline std::map<QString, std::uint64_t> tally;

/// A life of the program.
[[nodiscard]] Steps drawSteps(std::uint32_t seed);

/// Lets a life take its course on a machine in virtual time, with files in the present folder, and
/// ends the process when a rule is broken.
void live(const Steps& steps, Report& report);

}  // namespace mvdirigo
