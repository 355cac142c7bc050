#include "console/colours.h"

#include <algorithm>
#include <cmath>

namespace mvdirigo {
namespace {

const Shades kGreen{{0, 112, 42}, {76, 208, 122}};
const Shades kAmber{{143, 82, 0}, {240, 176, 64}};
const Shades kRed{{184, 20, 20}, {255, 138, 128}};
const Shades kGrey{{92, 92, 92}, {168, 168, 168}};

/// Relative luminance of an sRGB colour, 0 to 1, as the Web Content Accessibility Guidelines have
/// it.
double luminance(const QColor& colour) {
  const auto linear = [](float value) {
    const double part = value;
    return part <= 0.04045 ? part / 12.92 : std::pow((part + 0.055) / 1.055, 2.4);
  };
  return 0.2126 * linear(colour.redF()) + 0.7152 * linear(colour.greenF()) +
         0.0722 * linear(colour.blueF());
}

/// From 1 to 21.
double contrast(const QColor& one, const QColor& other) {
  const auto [darker, lighter] = std::minmax({luminance(one), luminance(other)});
  return (lighter + 0.05) / (darker + 0.05);
}

QColor onWindow(const Shades& shades, const QPalette& palette) {
  return readable(shades, palette.color(QPalette::Window), kTextContrast,
                  palette.color(QPalette::WindowText));
}

}  // namespace

QColor readable(const Shades& shades, const QColor& background, double least_contrast,
                const QColor& text) {
  const double on_light = contrast(shades.on_light, background);
  const double on_dark = contrast(shades.on_dark, background);
  if (std::max(on_light, on_dark) < least_contrast) return text;
  return on_light > on_dark ? shades.on_light : shades.on_dark;
}

QColor goodColour(const QPalette& palette) { return onWindow(kGreen, palette); }
QColor warningColour(const QPalette& palette) { return onWindow(kAmber, palette); }
QColor badColour(const QPalette& palette) { return onWindow(kRed, palette); }
QColor lineColour(const QPalette& palette) {
  const QColor ground = palette.color(QPalette::Window);
  const QColor text = palette.color(QPalette::WindowText);
  const auto mix = [](int of_ground, int of_text) { return (2 * of_ground + of_text) / 3; };
  return QColor(mix(ground.red(), text.red()), mix(ground.green(), text.green()),
                mix(ground.blue(), text.blue()));
}

QColor quietColour(const QPalette& palette) { return onWindow(kGrey, palette); }

}  // namespace mvdirigo
