#pragma once

#include <functional>

#include <QObject>

class QLineEdit;

namespace mvdirigo {

class ConsoleScreen;

/// The keys of a console's rows: Return in a command sends it, Up and Down go to the field above
/// and below, F6 goes from a command to its reply and back.
class RowKeys : public QObject {
 public:
  /// `screen` outlives the object. `send` is given the row.
  RowKeys(ConsoleScreen& screen, std::function<void(int)> send);

  bool eventFilter(QObject* watched, QEvent* event) override;

 private:
  [[nodiscard]] QLineEdit* neighbour(int row, bool is_reply, int key) const;

  ConsoleScreen& screen_;
  std::function<void(int)> send_;
};

}  // namespace mvdirigo
