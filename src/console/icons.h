#pragma once

#include <QColor>
#include <QFont>
#include <QIcon>
#include <QPainterPath>

class QPalette;

namespace mvdirigo {

enum class Glyph {
  kSettings,
  kRecord,
  kStopRecording,
  kStopPlayback,
  kPlayback,
  kPlayEndless,
  kHelp,
  kLoadDefault,
  kLoadStrings,
  kSaveStrings,
  kTraffic,
};

/// A button's picture. It is drawn anew at every size and scale, in the colours that the
/// application's palette has at that moment for a button, enabled or disabled.
QIcon icon(Glyph glyph);

/// Side of a button's picture, in logical pixels, that goes with a text in `font`.
int iconSide(const QFont& font);

/// The picture of the program's windows.
QIcon applicationIcon();

/// The program's mark, the rotor of a stepper motor: around (0, 0), of radius 1.
QPainterPath rotor();

/// The mark's colour on a window with `palette`: of a contrast of at least 4.5.
QColor markColour(const QPalette& palette);

}  // namespace mvdirigo
