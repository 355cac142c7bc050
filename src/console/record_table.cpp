#include "console/record_table.h"

#include <utility>

#include "platform/text.h"

namespace mvdirigo {

Cell::Cell(std::string text, Form form) : text_(std::move(text)), form_(form) {}

Cell Cell::ofNumber(std::int16_t number) { return {std::to_string(number), Form::kBare}; }

Cell Cell::ofText(std::string text) { return {std::move(text), Form::kQuoted}; }

Cell Cell::ofField(std::string text, bool quoted) {
  const bool digits_only = text.find_first_not_of("0123456789") == std::string::npos;
  return {std::move(text), !quoted && digits_only ? Form::kBare : Form::kQuoted};
}

std::int16_t Cell::number() const { return form_ == Form::kNeverSet ? 0 : textToInt16(text_); }

void RecordTable::setButton(int row, Cell cell) {
  rows_.at(static_cast<std::size_t>(row)).button = std::move(cell);
}

void RecordTable::setDelay(int row, Cell cell) {
  rows_.at(static_cast<std::size_t>(row)).delay = std::move(cell);
}

void RecordTable::clear() {
  for (int row = 0; row < kPresses; ++row) {
    setButton(row, Cell::ofNumber(0));
    setDelay(row, Cell::ofNumber(0));
  }
}

const RecordTable::Row& RecordTable::at(int row) const {
  static const Row kNeverSet;
  return row > kPresses ? kNeverSet : rows_.at(static_cast<std::size_t>(row));
}

}  // namespace mvdirigo
