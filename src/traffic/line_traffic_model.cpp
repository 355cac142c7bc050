#include "traffic/line_traffic_model.h"

#include <algorithm>
#include <iterator>

#include "platform/text.h"

namespace mvdirigo {

int LineTrafficModel::append(std::deque<Line>& lines) {
  if (lines.empty()) return 0;
  const int count = std::min(static_cast<int>(lines.size()), kLines);
  const int dropped = std::max(0, rowCount() + count - kLines);
  drop(dropped);
  const int first = rowCount();
  beginInsertRows({}, first, first + count - 1);
  std::move(lines.end() - count, lines.end(), std::back_inserter(lines_));
  lines.clear();
  widenFor(first);
  endInsertRows();
  return dropped;
}

void LineTrafficModel::drop(int count) {
  if (count == 0) return;
  beginRemoveRows({}, 0, count - 1);
  lines_.erase(lines_.begin(), lines_.begin() + count);
  endRemoveRows();
}

void LineTrafficModel::clear() {
  beginResetModel();
  lines_.clear();
  widest_text_ = 0;
  endResetModel();
}

void LineTrafficModel::showHex(bool hex) {
  Q_EMIT layoutAboutToBeChanged();
  hex_ = hex;
  widest_text_ = 0;
  widenFor(0);
  Q_EMIT layoutChanged();
}

QString LineTrafficModel::bytesText(const Line& line) const {
  const auto bytes =
      QByteArray::fromRawData(line.bytes.data(), static_cast<qsizetype>(line.bytes.size()));
  QString text = hex_ ? QString::fromLatin1(bytes.toHex(' ').toUpper())
                      : QString::fromStdString(visibleControls(line.bytes));
  if (line.length > line.bytes.size()) text += QString("\u2026 (%1 bytes)").arg(line.length);
  return text;
}

int LineTrafficModel::rowCount(const QModelIndex& parent) const {
  return parent.isValid() ? 0 : static_cast<int>(lines_.size());
}

QVariant LineTrafficModel::data(const QModelIndex& index, int role) const {
  return role == Qt::DisplayRole && index.isValid() ? text(index.row()) : QVariant();
}

void LineTrafficModel::widenFor(int first_row) {
  constexpr int kHead = sizeof "00:00:00.000 COM16 > " - 1;
  for (auto line = lines_.begin() + first_row; line != lines_.end(); ++line) {
    widest_text_ = std::max(widest_text_, kHead + static_cast<int>(bytesText(*line).size()));
  }
}

}  // namespace mvdirigo
