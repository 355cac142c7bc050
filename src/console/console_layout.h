#pragma once

namespace mvdirigo {

/// Positions and sizes are in twips; a twip is 1/15 of a logical pixel.
inline constexpr float kTwipsPerPixel = 15;

struct TwipsRect {
  float left = 0;
  float top = 0;
  float width = 0;
  float height = 0;
};

/// What the fonts decide; the rest of the layout follows.
struct LayoutMetrics {
  float button_width = 0;
  float button_height = 0;
  float logo_width = 0;
};

/// Where everything of a console stands, relative to row 0's send button. Nothing is measured from
/// the row before, so rows never drift.
class ConsoleLayout {
 public:
  explicit ConsoleLayout(const LayoutMetrics& metrics) : metrics_(metrics) {}

  [[nodiscard]] TwipsRect sendCommand(int row) const;
  [[nodiscard]] TwipsRect buttonShape(int row) const;
  [[nodiscard]] TwipsRect stringToSend(int row) const;
  [[nodiscard]] TwipsRect receiveString(int row) const;
  /// The frame around `rows` rows.
  [[nodiscard]] TwipsRect frame(int rows) const;
  /// Two columns of four above the rows: 0 to 3 at the left, 4 to 7 at the right, the lowest first.
  [[nodiscard]] TwipsRect loadButton(int index) const;
  [[nodiscard]] TwipsRect logo() const;
  /// What stands still above the rows, and below `rows` rows.
  [[nodiscard]] TwipsRect head() const;
  [[nodiscard]] TwipsRect foot(int rows) const;
  [[nodiscard]] float windowWidth() const;
  /// Height of a window whose last row is `last_row`: to two button heights under that row.
  [[nodiscard]] float windowHeight(int last_row) const;

 private:
  float pitch() const { return metrics_.button_height + metrics_.button_height / 4; }
  float rowTop(int row) const;
  float firstLeft() const;
  float firstTop() const;
  float barAnchor() const;

  LayoutMetrics metrics_;
};

}  // namespace mvdirigo
