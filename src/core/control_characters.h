#pragma once

namespace mvdirigo {

/// Characters that frame commands and replies.
inline constexpr char kStx = 2;
inline constexpr char kEtx = 3;
inline constexpr char kCarriageReturn = 13;

}  // namespace mvdirigo
