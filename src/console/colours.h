#pragma once

#include <QColor>
#include <QPalette>

namespace mvdirigo {

/// Least contrasts at which graphics and texts count as readable.
inline constexpr double kGraphicsContrast = 3;
inline constexpr double kTextContrast = 4.5;

/// A colour for light backgrounds and its counterpart for dark ones.
struct Shades {
  QColor on_light;
  QColor on_dark;
};

/// The better of `shades` on `background`, or `text` where even that is hard to see.
[[nodiscard]] QColor readable(const Shades& shades, const QColor& background, double least_contrast,
                              const QColor& text);

// Colours of texts and marks on a window with `palette`.
[[nodiscard]] QColor goodColour(const QPalette& palette);
[[nodiscard]] QColor warningColour(const QPalette& palette);
[[nodiscard]] QColor badColour(const QPalette& palette);
/// Of lines that part one thing from another.
[[nodiscard]] QColor lineColour(const QPalette& palette);
/// Of headings, which step back behind the text.
[[nodiscard]] QColor quietColour(const QPalette& palette);

}  // namespace mvdirigo
