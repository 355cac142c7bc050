#pragma once

#include <array>
#include <vector>

#include <QLineEdit>
#include <QPushButton>
#include <QWidget>

#include "console/console_layout.h"
#include "console/status_light.h"

namespace mvdirigo {

class Logo;

/// The controls of a console: a stack of rows under a bar of eight buttons. It places and labels
/// them; what they do belongs to the window that shows them.
class ConsoleScreen : public QWidget {
 public:
  static constexpr int kBarButtons = 8;

  /// Makes `row_count` rows, all hidden, of which `layOutRows` shows some.
  ConsoleScreen(int row_count, QWidget* parent);

  /// Shows the first `rows` rows and hides the rest, places everything, and labels the bar. With 0
  /// rows or fewer the frame and the screen keep their sizes.
  void layOutRows(int rows);

  int rowCount() const { return static_cast<int>(SendCommand.size()); }

  std::vector<QPushButton*> SendCommand;
  std::vector<QLineEdit*> StringToSend;
  std::vector<QLineEdit*> ReceiveString;
  std::vector<StatusLight*> ButtonShape;
  std::array<QPushButton*, kBarButtons> LoadButton{};
  QWidget* Frame1 = nullptr;

 protected:
  void changeEvent(QEvent* event) override;

 private:
  void makeRow(int row);
  void makeBar();
  void setTabOrderByEye();
  void place();
  LayoutMetrics measure() const;

  Logo* logo_ = nullptr;
  int rows_ = 0;
  /// Rows of the last layout that had any: the frame and the screen keep its size.
  int sized_for_rows_;
};

}  // namespace mvdirigo
