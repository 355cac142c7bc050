#include "console/row_keys.h"

#include <algorithm>
#include <utility>

#include <QKeyEvent>

#include "console/console_screen.h"

namespace mvdirigo {

RowKeys::RowKeys(ConsoleScreen& screen, std::function<void(int)> send)
    : screen_(screen), send_(std::move(send)) {
  for (QLineEdit* field : screen_.StringToSend) field->installEventFilter(this);
  for (QLineEdit* field : screen_.ReceiveString) field->installEventFilter(this);
}

bool RowKeys::eventFilter(QObject* watched, QEvent* event) {
  if (event->type() != QEvent::KeyPress) return false;
  const auto& strings = screen_.StringToSend;
  const auto& replies = screen_.ReceiveString;
  const auto string = std::ranges::find(strings, watched);
  const auto reply = std::ranges::find(replies, watched);
  const bool is_reply = string == strings.end();
  const auto row = static_cast<int>(is_reply ? reply - replies.begin() : string - strings.begin());

  const auto* press = static_cast<QKeyEvent*>(event);
  const int key = press->key();
  if (key == Qt::Key_Return || key == Qt::Key_Enter) {
    // A key that is held down sends once.
    if (!is_reply && !press->isAutoRepeat()) send_(row);
    return true;
  }
  if (key != Qt::Key_F6 && (press->modifiers() & ~Qt::KeypadModifier) != 0) return false;
  QLineEdit* next = neighbour(row, is_reply, key);
  if (next == nullptr) return false;
  next->setFocus(Qt::TabFocusReason);
  screen_.showRow(next);
  return true;
}

QLineEdit* RowKeys::neighbour(int row, bool is_reply, int key) const {
  if (key != Qt::Key_Up && key != Qt::Key_Down && key != Qt::Key_F6) return nullptr;
  if (key == Qt::Key_Up) --row;
  if (key == Qt::Key_Down) ++row;
  if (key == Qt::Key_F6) is_reply = !is_reply;
  if (row < 0 || row >= screen_.rowCount()) return nullptr;
  const auto at = static_cast<std::size_t>(row);
  QLineEdit* field = is_reply ? screen_.ReceiveString[at] : screen_.StringToSend[at];
  return field->isHidden() ? nullptr : field;
}

}  // namespace mvdirigo
