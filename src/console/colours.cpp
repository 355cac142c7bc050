#include "console/colours.h"

namespace mvdirigo {
namespace {

QColor either(const QPalette& palette, QRgb on_light, QRgb on_dark) {
  return QColor(isDark(palette) ? on_dark : on_light);
}

}  // namespace

bool isDark(const QPalette& palette) {
  return palette.color(QPalette::Window).lightness() <
         palette.color(QPalette::WindowText).lightness();
}

QColor accentColour(const QPalette& palette) { return either(palette, 0xFF006699, 0xFF5BB4E8); }
QColor goodColour(const QPalette& palette) { return either(palette, 0xFF00702A, 0xFF4CD07A); }
QColor warningColour(const QPalette& palette) { return either(palette, 0xFF8F5200, 0xFFF0B040); }
QColor badColour(const QPalette& palette) { return either(palette, 0xFFB81414, 0xFFFF8A80); }
QColor quietColour(const QPalette& palette) { return either(palette, 0xFF5C5C5C, 0xFFA8A8A8); }

}  // namespace mvdirigo
