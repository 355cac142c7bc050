#include "console/status_strip.h"

#include <QEvent>
#include <QHBoxLayout>
#include <QLabel>
#include <QPainter>
#include <QVBoxLayout>

#include "console/icons.h"
#include "console/part_line.h"
#include "console/press_button.h"
#include "console/tool_tip.h"

namespace mvdirigo {

/// A text as wide as it is, where there is room for it.
class StripText : public QLineEdit {
 public:
  StripText(const char* name, const char* accessible_name) {
    setObjectName(name);
    setAccessibleName(accessible_name);
    setReadOnly(true);
    setFrame(false);
    setFocusPolicy(Qt::ClickFocus);
    setSizePolicy(QSizePolicy::Maximum, QSizePolicy::Fixed);
    QPalette ground;
    ground.setColor(QPalette::Base, Qt::transparent);
    setPalette(ground);
  }

  void show(const QString& whole) {
    const QString text = shortened(whole);
    if (text == this->text()) return;
    setText(text);
    setCursorPosition(0);
    // The whole text, where there is no room for it; assistive tools have it anyway.
    setToolTip(plainToolTip(text));
    setAccessibleDescription(" ");
    updateGeometry();
  }

  QSize sizeHint() const override {
    constexpr int kCursorAndMargins = 8;
    return {fontMetrics().horizontalAdvance(text()) + kCursorAndMargins,
            QLineEdit::sizeHint().height()};
  }
  /// Where there is too little room, both ends show: the port and its state.
  void paintEvent(QPaintEvent* event) override {
    if (hasFocus() || width() >= sizeHint().width()) return QLineEdit::paintEvent(event);
    QPainter painter(this);
    painter.setPen(palette().color(QPalette::Text));
    painter.drawText(rect().adjusted(2, 0, -2, 0), Qt::AlignVCenter | Qt::AlignLeft,
                     fontMetrics().elidedText(text(), Qt::ElideMiddle, width() - 4));
  }
  QSize minimumSizeHint() const override { return {0, sizeHint().height()}; }
};

StatusStrip::StatusStrip(std::function<void()> show_traffic)
    : line_(new StripText("LineStatus", "Line status")),
      sign_label_(new QLabel),
      activity_(new StripText("Activity", "Activity")),
      traffic_(new PressButton) {
  setObjectName("StatusStrip");
  setAccessibleName("Status");
  traffic_->setObjectName("cmdTraffic");
  traffic_->setIcon(icon(Glyph::kTraffic));
  sign_label_->setAccessibleName("Activity sign");
  sign_label_->hide();
  traffic_->setAccessibleName("Traffic");
  traffic_->setToolTip("Line Traffic (F12)");
  connect(traffic_, &QPushButton::clicked, this, [show = std::move(show_traffic)] { show(); });
  setFocusProxy(traffic_);

  auto* column = new QVBoxLayout(this);
  column->setContentsMargins(0, 0, 0, 0);
  column->setSpacing(0);
  column->addWidget(new PartLine);
  auto* row = new QHBoxLayout;
  row->setContentsMargins(0, 0, 0, 0);
  row->addWidget(line_);
  row->addSpacing(fontMetrics().height());
  row->addStretch();
  row->addWidget(sign_label_);
  row->addWidget(activity_);
  row->addWidget(traffic_);
  column->addLayout(row, 1);
}

void StatusStrip::showLine(const QString& text) { line_->show(text); }

void StatusStrip::showActivity(const QString& text, Sign sign) {
  activity_->show(text);
  if (sign == sign_) return;
  sign_ = sign;
  showSign();
}

void StatusStrip::showSign() {
  sign_label_->setVisible(sign_ != Sign::kNone);
  const Glyph glyph = sign_ == Sign::kRecording ? Glyph::kRecord : Glyph::kPlayback;
  const int side = fontMetrics().ascent();
  sign_label_->setPixmap(icon(glyph).pixmap(QSize(side, side), devicePixelRatio()));
}

void StatusStrip::changeEvent(QEvent* event) {
  QWidget::changeEvent(event);
  if (event->type() == QEvent::PaletteChange || event->type() == QEvent::FontChange) {
    const int side = iconSide(font());
    traffic_->setIconSize({side, side});
    showSign();
  }
}

}  // namespace mvdirigo
