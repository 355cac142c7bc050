#pragma once

#include <cstdint>
#include <functional>

#include <QLineEdit>

class QMenu;

namespace mvdirigo {

/// What became of a row's last command.
enum class ReplyMark : std::uint8_t {
  kNone,
  kAnswered,
  /// The reply has a status code other than 0.
  kAnsweredWithError,
  kNoAnswer,
};

/// A field that shows a reply: text that can be read and copied, but not changed, and a mark that
/// stays when the status light has faded. Marks differ in shape as in colour.
class ReplyField : public QLineEdit {
 public:
  explicit ReplyField(QWidget* parent);

  void showReply(const QString& text, ReplyMark mark);
  /// Puts `story` below the reply's text in the tool tip.
  void tellStory(const QString& story);
  void clearReply();
  [[nodiscard]] ReplyMark mark() const { return mark_; }

  /// Adds to the context menu behind "Copy".
  void extendMenu(std::function<void(QMenu&)> extend) { extend_menu_ = std::move(extend); }

 protected:
  void paintEvent(QPaintEvent* event) override;
  void resizeEvent(QResizeEvent* event) override;
  void contextMenuEvent(QContextMenuEvent* event) override;

 private:
  void makeRoomForMark();

  ReplyMark mark_ = ReplyMark::kNone;
  std::function<void(QMenu&)> extend_menu_;
};

}  // namespace mvdirigo
