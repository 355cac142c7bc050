#pragma once

#include <string>
#include <string_view>

namespace mvdirigo {

/// What a unit must have received of an update file, in pieces of six bytes.
[[nodiscard]] std::string imageOfUpdateFile(std::string_view file);

/// Says in words whether two images match, and where they first differ.
[[nodiscard]] std::string compareImages(std::string_view received, std::string_view expected);

}  // namespace mvdirigo
