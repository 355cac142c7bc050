#include "console/press_button.h"

#include <QKeyEvent>
#include <QShortcutEvent>

namespace mvdirigo {

bool PressButton::event(QEvent* event) {
  if (event->type() == QEvent::Shortcut) {
    // One that several buttons share leads from one to the next, as everywhere.
    if (!static_cast<QShortcutEvent*>(event)->isAmbiguous()) {
      click();
      return true;
    }
  }
  return QPushButton::event(event);
}

void PressButton::keyPressEvent(QKeyEvent* event) {
  const bool enter = event->key() == Qt::Key_Return || event->key() == Qt::Key_Enter;
  if (enter && !event->isAutoRepeat()) {
    click();
  } else {
    QPushButton::keyPressEvent(event);
  }
}

}  // namespace mvdirigo
