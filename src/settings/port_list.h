#pragma once

#include <functional>

#include <QListWidget>

namespace mvdirigo {

/// A row of the port list. Its tool tip is made when it is asked for, because the console opens and
/// closes its port while the list is shown.
class PortRow : public QListWidgetItem {
 public:
  PortRow(int port, bool available, std::function<QString()> tool_tip);

  QVariant data(int role) const override;

 private:
  bool available_;
  std::function<QString()> tool_tip_;
};

/// The list of ports, whose rows can be picked by the keys that move the highlight.
class PortList : public QListWidget {
 public:
  explicit PortList(std::function<void(int row)> pick);

 protected:
  void keyPressEvent(QKeyEvent* event) override;

 private:
  std::function<void(int row)> pick_;
};

}  // namespace mvdirigo
