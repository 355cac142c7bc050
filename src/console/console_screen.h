#pragma once

#include <array>
#include <vector>

#include <QWidget>

#include "console/console_layout.h"
#include "console/press_button.h"
#include "console/reply_field.h"
#include "console/status_light.h"

class QLabel;
class QScrollArea;

namespace mvdirigo {

class Logo;

/// The controls of a console: a head with a bar of eight buttons, a stack of rows under it, and
/// room for a foot. In a smaller window only the rows scroll, and the bar's columns move together;
/// in a larger one everything stays together in the middle. It places and labels the controls; what
/// they do belongs to the window that shows them.
class ConsoleScreen : public QWidget {
 public:
  static constexpr int kBarButtons = 8;

  /// Makes `row_count` rows, all hidden, of which `layOutRows` shows some. `foot` stands under the
  /// rows and may be null.
  ConsoleScreen(int row_count, QWidget* foot, QWidget* parent);

  /// Shows the first `rows` rows and hides the rest, places everything, and labels the bar. With 0
  /// rows or fewer the frame and the screen keep their sizes.
  void layOutRows(int rows);

  /// Labels a button of the bar, with the picture that belongs to the caption.
  void setBarCaption(int button, const QString& caption);

  [[nodiscard]] int rowCount() const { return static_cast<int>(SendCommand.size()); }
  /// The size that shows everything.
  [[nodiscard]] QSize sizeHint() const override { return full_size_; }
  [[nodiscard]] QSize minimumSizeHint() const override;
  /// The size that shows everything of the window that `room` (both in logical pixels) allows: with
  /// scroll bars where it is smaller.
  [[nodiscard]] QSize sizeWithin(QSize room) const;

  /// Scrolls to `control` of a row, if need be.
  void showRow(QWidget* control);

  std::vector<PressButton*> SendCommand;
  std::vector<QLineEdit*> StringToSend;
  std::vector<ReplyField*> ReceiveString;
  std::vector<StatusLight*> ButtonShape;
  std::array<PressButton*, kBarButtons> LoadButton{};
  QWidget* Frame1 = nullptr;

 protected:
  void changeEvent(QEvent* event) override;
  void resizeEvent(QResizeEvent* event) override;

 private:
  void makeHead();
  void makeRow(int row);
  void setTabOrderByEye();
  void place();
  void placeRows(const ConsoleLayout& layout);
  void placeHead(const ConsoleLayout& layout);
  int showScrollBarsAsNeeded(QSize area);
  [[nodiscard]] LayoutMetrics measure() const;
  void adaptColours();

  QWidget* head_;
  QScrollArea* scroll_area_;
  QWidget* rows_area_;
  QWidget* foot_;
  Logo* logo_ = nullptr;
  QWidget* line_ = nullptr;
  QLabel* command_heading_ = nullptr;
  QLabel* reply_heading_ = nullptr;
  LayoutMetrics metrics_;
  QSize full_size_;
  int rows_ = 0;
  /// Rows of the last layout that had any: the frame and the screen keep its size.
  int sized_for_rows_;
};

}  // namespace mvdirigo
