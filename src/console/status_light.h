#pragma once

#include <QWidget>

#include "protocol/transaction.h"

namespace mvdirigo {

/// A row's status light: a rectangle filled with the colour of what became of the row's command.
class StatusLight : public QWidget {
 public:
  explicit StatusLight(QWidget* parent);

  void setFillColor(LightColour colour);
  [[nodiscard]] LightColour fillColor() const { return colour_; }

 protected:
  void paintEvent(QPaintEvent* event) override;

 private:
  void showColour();

  LightColour colour_ = LightColour::kWhite;
};

}  // namespace mvdirigo
