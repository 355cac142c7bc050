#pragma once

#include <QWidget>

namespace mvdirigo {

/// A horizontal line of one pixel along its top.
class PartLine : public QWidget {
 public:
  explicit PartLine(QWidget* parent = nullptr) : QWidget(parent) { setFixedHeight(1); }

 protected:
  void paintEvent(QPaintEvent* event) override;
};

}  // namespace mvdirigo
