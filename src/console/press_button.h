#pragma once

#include <QPushButton>

namespace mvdirigo {

/// A push button that acts at once: on its accelerator without the toolkit's 100 ms of looking
/// pressed first, and on Return as on the space bar.
class PressButton : public QPushButton {
 public:
  using QPushButton::QPushButton;

 protected:
  bool event(QEvent* event) override;
  void keyPressEvent(QKeyEvent* event) override;
};

}  // namespace mvdirigo
