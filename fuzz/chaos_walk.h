#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <vector>

namespace mvdirigo {

/// Something that happens: an act, the name of a control that is used, or so many ms that pass.
struct Step {
  std::string act;
  /// What else is random about it.
  std::uint32_t choice;
};
using Steps = std::vector<Step>;

/// A life of the program.
[[nodiscard]] Steps drawSteps(std::uint32_t seed);

/// How far the walk got, in memory that outlives the process that walks.
struct Report {
  /// Of the life under way.
  std::uint32_t seed = 0;
  std::uint64_t steps = 0;
  /// The rule that was broken, ": " and details.
  char failure[1000] = "";
};

/// How often things happened in this process.
inline std::map<std::string, std::uint64_t> tally;

/// Lets a life take its course on a machine in virtual time, with files in `folder`, and ends the
/// process with status 1 when a rule is broken. `tell` says every step in words.
void live(const Steps& steps, const std::string& folder, Report& report, bool tell);

}  // namespace mvdirigo
