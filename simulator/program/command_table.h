#pragma once

#include <string>

namespace mvdirigo {

/// The commands that a unit understands, in lines for people.
[[nodiscard]] std::string commandTable();

}  // namespace mvdirigo
