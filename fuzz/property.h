#pragma once

#include <cstdio>
#include <cstdlib>

namespace mvdirigo {

/// Ends the process with `words` unless `holds`: what a fuzzer takes for a find.
inline void require(bool holds, const char* words) {
  if (holds) return;
  std::fprintf(stderr, "does not hold: %s\n", words);
  std::abort();
}

}  // namespace mvdirigo
