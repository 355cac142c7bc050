#pragma once

#include <cstddef>
#include <deque>
#include <string>

#include <QAbstractListModel>
#include <QString>

#include "platform/line_traffic.h"

namespace mvdirigo {

/// The newest 10,000 transfers of a line, one a row: time, port, direction and bytes as text. Of a
/// longer transfer the first 4,096 bytes are kept, with its length, so 40 MB are the most that can
/// be held, and what mostly is held is some 100 bytes a row.
class LineTrafficModel : public QAbstractListModel {
 public:
  static constexpr int kLines = 10'000;
  static constexpr std::size_t kBytesKept = 4096;

  /// One transfer as it is kept.
  struct Line {
    Line(const LineTransfer& about, std::string_view all_bytes) : transfer(about) {
      append(all_bytes);
    }
    void append(std::string_view more) {
      bytes += more.substr(0, kBytesKept - bytes.size());
      length += more.size();
    }

    LineTransfer transfer;
    std::string bytes;
    std::size_t length = 0;
  };

  /// Takes all of `lines` as the newest, and drops the oldest. Returns how many it dropped.
  int append(std::deque<Line>& lines);
  void clear();

  /// Bytes in hexadecimal, or as characters with control characters spelled out.
  void showHex(bool hex);

  [[nodiscard]] QString text(int row) const {
    const Line& line = lines_[static_cast<std::size_t>(row)];
    return QString::fromStdString(line.transfer.head()) + bytesText(line);
  }
  /// Characters of the longest text since the last `clear` or `showHex`, or one more.
  [[nodiscard]] int widestText() const { return widest_text_; }

  int rowCount(const QModelIndex& parent = {}) const override;
  QVariant data(const QModelIndex& index, int role) const override;

 private:
  void drop(int count);
  void widenFor(int first_row);
  [[nodiscard]] QString bytesText(const Line& line) const;

  std::deque<Line> lines_;
  bool hex_ = false;
  int widest_text_ = 0;
};

}  // namespace mvdirigo
