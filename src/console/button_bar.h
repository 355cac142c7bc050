#pragma once

namespace mvdirigo {

/// The button bar's indexes: `LoadButton(bar::kRecord)` is the record button.
namespace bar {
inline constexpr int kPlayEndless = 0;
inline constexpr int kPlayback = 1;
inline constexpr int kRecord = 2;
inline constexpr int kSettings = 3;
inline constexpr int kSaveStrings = 4;
inline constexpr int kLoadStrings = 5;
inline constexpr int kLoadDefault = 6;
inline constexpr int kHelp = 7;
}  // namespace bar

}  // namespace mvdirigo
