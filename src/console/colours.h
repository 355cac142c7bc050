#pragma once

#include <QColor>
#include <QPalette>

namespace mvdirigo {

// Colours that are to be told apart on the ground of a field or a window, be it light or dark: the
// contrast to both is 4.5 at least.

[[nodiscard]] bool isDark(const QPalette& palette);
[[nodiscard]] QColor accentColour(const QPalette& palette);
[[nodiscard]] QColor goodColour(const QPalette& palette);
[[nodiscard]] QColor warningColour(const QPalette& palette);
[[nodiscard]] QColor badColour(const QPalette& palette);
/// Of headings, which step back behind the text.
[[nodiscard]] QColor quietColour(const QPalette& palette);

}  // namespace mvdirigo
