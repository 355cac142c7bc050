#pragma once

#include <QSize>

class QWidget;

namespace mvdirigo {

/// What the screen of `window` has for it, in logical pixels, beside the window's frame.
[[nodiscard]] QSize roomOnScreen(const QWidget& window);

}  // namespace mvdirigo
