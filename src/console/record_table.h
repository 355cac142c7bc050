#pragma once

#include <array>
#include <cstdint>
#include <string>

namespace mvdirigo {

/// A cell of the recorded sequence: never set, a number, or text (UTF-8).
class Cell {
 public:
  /// A cell that was never set.
  Cell() = default;
  [[nodiscard]] static Cell ofNumber(std::int16_t number);
  [[nodiscard]] static Cell ofText(std::string text);

  /// Empty for a cell that was never set, decimal digits for a number.
  [[nodiscard]] const std::string& text() const { return text_; }
  /// The cell as a 16-bit number, 0 when it was never set. Throws `kTypeMismatch` for text that is
  /// no number, empty text included, and `kOverflow` outside the range.
  [[nodiscard]] std::int16_t number() const;
  /// Whether a command file holds the text in quotes.
  [[nodiscard]] bool quoted() const { return form_ == Form::kText; }

 private:
  enum class Form : std::uint8_t { kNeverSet, kNumber, kText };

  Cell(std::string text, Form form);

  std::string text_;
  Form form_ = Form::kNeverSet;
};

/// The recorded sequence of row presses. Rows 0 to k - 1 hold k presses, row k the end entry, and
/// zeros behind it mark the end. An entry is the pressed row's index (empty text in the end entry)
/// and its delay: the ticks that passed before it.
class RecordTable {
 public:
  static constexpr int kPresses = 500;

  /// Cells of the rows past `kPresses` count as never set, so a full table ends like any other.
  [[nodiscard]] const Cell& button(int row) const { return at(row).button; }
  [[nodiscard]] const Cell& delay(int row) const { return at(row).delay; }

  /// Rows 0 to `kPresses`, the last one for the end entry of a full recording.
  void setButton(int row, Cell cell);
  void setDelay(int row, Cell cell);

  /// Puts the number 0 into both cells of every row that can hold a press.
  void clear();

 private:
  struct Row {
    Cell button;
    Cell delay;
  };

  const Row& at(int row) const;

  std::array<Row, kPresses + 1> rows_;
};

}  // namespace mvdirigo
