#pragma once

#include <cstdint>
#include <functional>

#include <QLineEdit>
#include <QWidget>

class QLabel;

namespace mvdirigo {

class PressButton;
class StripText;

/// The strip under the rows: the line's state at the left, what goes on at the right, and a button
/// for the line's traffic. Both texts can be selected and copied.
class StatusStrip : public QWidget {
 public:
  explicit StatusStrip(std::function<void()> show_traffic);

  void showLine(const QString& text);
  /// `recording` and `playing` put a sign before `text`.
  enum class Sign : std::uint8_t { kNone, kRecording, kPlaying };
  void showActivity(const QString& text, Sign sign);

 protected:
  void changeEvent(QEvent* event) override;

 private:
  void showSign();

  StripText* line_;
  QLabel* sign_label_;
  StripText* activity_;
  PressButton* traffic_;
  Sign sign_ = Sign::kNone;
};

}  // namespace mvdirigo
