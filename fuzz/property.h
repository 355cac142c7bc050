#pragma once

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <numeric>
#include <string>

namespace mvdirigo {

/// What a fuzz target does with an input: whatever that is, every `require` holds.
void check(std::string_view input);

/// Ends the process with `words` unless `holds`: what a fuzzer takes for a find.
inline void require(bool holds, const char* words) {
  if (holds) return;
  std::fprintf(stderr, "does not hold: %s\n", words);
  std::abort();
}

/// Takes the part before the first `end` off the front of `rest`, and drops that `end`.
inline std::string_view takeUntil(char end, std::string_view& rest) {
  const std::string_view part = rest.substr(0, rest.find(end));
  rest.remove_prefix(std::min(part.size() + 1, rest.size()));
  return part;
}

/// One input in 16,384, and always the same ones, with an end that is more than any buffer takes.
inline std::string sometimesFlooding(std::string_view input) {
  const bool floods = !input.empty() && std::hash<std::string_view>{}(input) % 16384 == 0;
  return std::string(input) + std::string(floods ? 140'000 : 0, input.empty() ? ' ' : input.back());
}

/// 0 of a frame with its checksum.
inline char sumOf(std::string_view bytes) {
  return std::accumulate(bytes.begin(), bytes.end(), '\0', std::bit_xor<char>());
}

}  // namespace mvdirigo
