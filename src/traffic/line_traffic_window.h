#pragma once

#include <deque>
#include <memory>
#include <string>

#include <QWidget>

#include "platform/platform.h"
#include "traffic/line_traffic_model.h"

class QCheckBox;
class QListView;
class QPushButton;

namespace mvdirigo {

/// Shows what goes over the lines of all ports, one write or burst read a row, the newest last. It
/// follows the newest row unless the user has scrolled back. While it is closed it watches nothing;
/// what it held stays until "Clear".
class LineTrafficWindow : public QWidget, private LineTraffic::Watcher {
 public:
  explicit LineTrafficWindow(Platform& platform);
  ~LineTrafficWindow() override;

  /// Keeps the window usable beside `modal`, an open window that blocks all others; null when that
  /// one is closed. "Save" is disabled meanwhile: its dialog would hold up whatever waits there.
  void standBeside(QWidget* modal);

  /// Hides it for good, at the program's end.
  void unload();

 protected:
  void showEvent(QShowEvent* event) override;
  void hideEvent(QHideEvent* event) override;
  void keyPressEvent(QKeyEvent* event) override;

 private:
  void lineTransfer(const LineTransfer& transfer, std::string_view bytes) override;
  /// Whether what is read now continues the newest row.
  [[nodiscard]] bool continues(const LineTransfer& transfer) const;
  /// Shows what came in since the last call.
  void showPending();
  void clear();
  void copy();
  void save();
  /// The rows selected, or all when none is, each with a line end.
  [[nodiscard]] QString selectedText() const;
  [[nodiscard]] QString allText() const;

  Platform& platform_;
  WindowLife life_;
  LineTrafficModel model_;
  QListView* view_;
  QPushButton* save_;
  std::deque<LineTrafficModel::Line> pending_;
  /// When the newest bytes of `pending_` came.
  std::chrono::milliseconds newest_{0};
  /// Runs while something is pending. A view that is told of many rows at a time does hardly more
  /// than for one.
  std::unique_ptr<Timer> pause_;
};

}  // namespace mvdirigo
