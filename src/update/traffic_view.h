#pragma once

#include <memory>
#include <string>

#include <QPlainTextEdit>
#include <QStringList>

#include "platform/platform.h"
#include "update/flash_link.h"

namespace mvdirigo {

/// The newest traffic of a line as text: at most 2,000 lines of 500 characters each and 256 Ki
/// characters in all, control characters spelled out.
class TrafficView : public QPlainTextEdit {
 public:
  explicit TrafficView(Platform& platform);
  ~TrafficView() override;

  /// Adds the newest of `bytes` (Latin-1) as a line, which begins with ">" when they were sent and
  /// with "<" when they were received, and shows a moment later.
  void print(FlashLink::Direction direction, std::string_view bytes);

 private:
  void showPrinted();
  void dropOldest();

  /// Lines are laid out only when they are seen, so many at a time cost little more than one.
  QStringList printed_;
  std::unique_ptr<Timer> pause_;
};

}  // namespace mvdirigo
