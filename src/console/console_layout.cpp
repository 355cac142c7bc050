#include "console/console_layout.h"

namespace mvdirigo {
namespace {

constexpr float kShapeWidth = 240;
constexpr float kStringWidth = 4500;
constexpr float kReceiveWidth = 5000;
constexpr float kMargin = 225;
constexpr float kRightMargin = 300;
constexpr int kBarColumnHeight = 4;

}  // namespace

float ConsoleLayout::firstLeft() const { return kMargin + 2 * kShapeWidth; }

// The bar's lowest buttons end half a button height above the frame, whose top is one button height
// above row 0.
float ConsoleLayout::barAnchor() const {
  const float highest = kMargin;
  return highest + metrics_.button_height / 2 + (kBarColumnHeight - 1) * pitch();
}

float ConsoleLayout::firstTop() const { return barAnchor() + 2 * metrics_.button_height; }

float ConsoleLayout::rowTop(int row) const {
  return firstTop() + static_cast<float>(row) * pitch();
}

TwipsRect ConsoleLayout::sendCommand(int row) const {
  return {firstLeft(), rowTop(row), metrics_.button_width, metrics_.button_height};
}

TwipsRect ConsoleLayout::buttonShape(int row) const {
  return {firstLeft() - 2 * kShapeWidth, rowTop(row), kShapeWidth, metrics_.button_height};
}

TwipsRect ConsoleLayout::stringToSend(int row) const {
  const float left = firstLeft() + metrics_.button_width + metrics_.button_width / 8;
  return {left, rowTop(row), kStringWidth, metrics_.button_height};
}

TwipsRect ConsoleLayout::receiveString(int row) const {
  const TwipsRect string = stringToSend(row);
  const float left = string.left + string.width + metrics_.button_width / 8;
  return {left, rowTop(row), kReceiveWidth, metrics_.button_height};
}

TwipsRect ConsoleLayout::frame(int rows) const {
  return {firstLeft() - metrics_.button_height / 2, firstTop() - metrics_.button_height,
          metrics_.button_width + kStringWidth + kReceiveWidth + 4 * (metrics_.button_width / 8),
          pitch() * static_cast<float>(rows)};
}

TwipsRect ConsoleLayout::loadButton(int index) const {
  const TwipsRect receive = receiveString(0);
  const float left =
      index < kBarColumnHeight ? firstLeft() : receive.left + receive.width - metrics_.button_width;
  const auto from_lowest = static_cast<float>(index % kBarColumnHeight);
  const float top = barAnchor() - metrics_.button_height / 2 - from_lowest * pitch();
  return {left, top, metrics_.button_width, metrics_.button_height};
}

TwipsRect ConsoleLayout::logo() const {
  const float top = loadButton(kBarColumnHeight - 1).top;
  const float bottom = loadButton(0).top + metrics_.button_height;
  return {windowWidth() / 2 - metrics_.logo_width / 2, top, metrics_.logo_width, bottom - top};
}

// Rows scroll out of sight a little above the place of row 0, and as much below the last one.
TwipsRect ConsoleLayout::head() const {
  return {0, 0, windowWidth(), firstTop() - metrics_.button_height / 8};
}

TwipsRect ConsoleLayout::foot(int rows) const {
  const float top = rowTop(rows - 1) + metrics_.button_height + metrics_.button_height / 8;
  return {0, top, windowWidth(), windowHeight(rows - 1) - top};
}

float ConsoleLayout::windowWidth() const {
  const TwipsRect receive = receiveString(0);
  return receive.left + receive.width + kRightMargin;
}

float ConsoleLayout::windowHeight(int last_row) const {
  return rowTop(last_row) + 3 * metrics_.button_height;
}

}  // namespace mvdirigo
