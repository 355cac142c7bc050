#include "console/record_table.h"

#include <utility>

#include "platform/text.h"

namespace mvdirigo {

Cell::Cell(std::string text, Form form) : text_(std::move(text)), form_(form) {}

Cell Cell::ofNumber(std::int16_t number) { return {std::to_string(number), Form::kNumber}; }

Cell Cell::ofText(std::string text) { return {std::move(text), Form::kText}; }

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
