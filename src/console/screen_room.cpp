#include "console/screen_room.h"

#include <QScreen>
#include <QWidget>

namespace mvdirigo {

QSize roomOnScreen(const QWidget& window) {
  const QSize frame(40, 60);
  return window.screen()->availableSize() - frame;
}

}  // namespace mvdirigo
