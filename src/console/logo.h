#pragma once

#include <QWidget>

namespace mvdirigo {

/// The console's mark: the rotor of a stepper motor and the program's short name.
class Logo : public QWidget {
 public:
  explicit Logo(QWidget* parent);

  /// Width in logical pixels that shows the mark without cutting it.
  [[nodiscard]] int preferredWidth() const;

 protected:
  void paintEvent(QPaintEvent* event) override;

 private:
  QFont nameFont() const;
};

}  // namespace mvdirigo
