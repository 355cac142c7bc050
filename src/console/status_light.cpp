#include "console/status_light.h"

#include <QPainter>

namespace mvdirigo {
namespace {

struct Meaning {
  const char* colour_name;
  const char* words;
};

Meaning meaningOf(LightColour colour) {
  switch (colour) {
    case LightColour::kWhite:
      return {"white", "Idle, or waiting for a reply"};
    case LightColour::kGreen:
      return {"green", "Reply received"};
    case LightColour::kRed:
      return {"red", "No reply within the time-out"};
    case LightColour::kYellow:
      return {"yellow", "Searching: no reply from this unit"};
  }
  return {"", ""};
}

QColor shown(LightColour colour) {
  const auto value = static_cast<std::uint32_t>(colour);
  return QColor(static_cast<int>(value & 0xFF), static_cast<int>((value >> 8) & 0xFF),
                static_cast<int>((value >> 16) & 0xFF));
}

}  // namespace

StatusLight::StatusLight(QWidget* parent) : QWidget(parent) { setFillColor(LightColour::kWhite); }

void StatusLight::setFillColor(LightColour colour) {
  colour_ = colour;
  const Meaning meaning = meaningOf(colour);
  setAccessibleDescription(meaning.colour_name);
  setToolTip(meaning.words);
  update();
}

void StatusLight::paintEvent(QPaintEvent*) {
  QPainter painter(this);
  painter.setPen(palette().color(QPalette::Dark));
  painter.setBrush(shown(colour_));
  painter.drawRect(rect().adjusted(0, 0, -1, -1));
}

}  // namespace mvdirigo
