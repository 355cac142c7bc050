#pragma once

#include <string>
#include <string_view>

namespace mvdirigo {

/// The first of the words between blanks in `reply` that has both a "v", in either case, and a ".";
/// empty when there is none.
std::string ExtractVersion(std::string_view reply);

/// What a version word such as "v7.02" says of the controller's answer to the query for its CPU/DSP
/// ID. `kUnknown` is for a point at another place than behind one or two digits.
enum class CpuIdQuery { kUnknown, kNotAnswered, kAnswered };

/// Throws `kTypeMismatch` when a place that must be a digit is none.
CpuIdQuery cpuIdQueryOf(std::string_view version);

}  // namespace mvdirigo
