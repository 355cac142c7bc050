#include "console/reply_field.h"

#include <QApplication>
#include <QClipboard>
#include <QContextMenuEvent>
#include <QMenu>
#include <QPainter>
#include <QPainterPath>

#include "console/colours.h"
#include "console/mark_shapes.h"
#include "console/tool_tip.h"

namespace mvdirigo {
namespace {

struct Look {
  QPainterPath shape;
  QColor colour;
};

Look lookOf(ReplyMark mark, const QPalette& palette) {
  switch (mark) {
    case ReplyMark::kAnswered:
      return {checkShape(), goodColour(palette)};
    case ReplyMark::kAnsweredWithError:
      return {warningShape(), warningColour(palette)};
    case ReplyMark::kNoAnswer:
      return {crossShape(), badColour(palette)};
    case ReplyMark::kNone:
      break;
  }
  return {};
}

}  // namespace

ReplyField::ReplyField(QWidget* parent) : QLineEdit(parent) {
  setReadOnly(true);
  setFocusPolicy(Qt::ClickFocus);
}

void ReplyField::showReply(const QString& text, ReplyMark mark) {
  setText(text);
  setCursorPosition(0);
  mark_ = mark;
  makeRoomForMark();
  update();
}

void ReplyField::tellStory(const QString& story) {
  setPlainToolTip(*this, text().isEmpty() ? story : shortened(text()) + '\n' + story);
}

void ReplyField::clearReply() {
  showReply({}, ReplyMark::kNone);
  setPlainToolTip(*this, {});
}

void ReplyField::makeRoomForMark() {
  setTextMargins(0, 0, mark_ == ReplyMark::kNone ? 0 : height() - 4, 0);
}

void ReplyField::resizeEvent(QResizeEvent* event) {
  QLineEdit::resizeEvent(event);
  makeRoomForMark();
}

void ReplyField::paintEvent(QPaintEvent* event) {
  QLineEdit::paintEvent(event);
  if (mark_ == ReplyMark::kNone) return;
  const auto [shape, colour] = lookOf(mark_, palette());
  const double side = height() - 12;
  QPainter painter(this);
  painter.setRenderHint(QPainter::Antialiasing);
  painter.translate(width() - 6 - side, 6);
  painter.scale(side, side);
  painter.fillPath(shape, colour);
}

void ReplyField::contextMenuEvent(QContextMenuEvent* event) {
  auto* menu = new QMenu(this);
  menu->setAttribute(Qt::WA_DeleteOnClose);
  QAction* copy = menu->addAction("&Copy", this, [this] {
    QApplication::clipboard()->setText(hasSelectedText() ? selectedText() : text());
  });
  copy->setEnabled(!text().isEmpty());
  if (extend_menu_) extend_menu_(*menu);
  const bool by_key = event->reason() == QContextMenuEvent::Keyboard;
  menu->popup(by_key ? mapToGlobal(rect().bottomLeft()) : event->globalPos());
}

}  // namespace mvdirigo
