#include "console/status_light.h"

#include <algorithm>

#include <QAccessibleWidget>
#include <QPainter>

#include "console/mark_shapes.h"

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

QPainterPath shapeOf(LightColour colour) {
  if (colour == LightColour::kGreen) return checkShape();
  return colour == LightColour::kRed ? crossShape() : dotsShape();
}

QColor shown(LightColour colour) {
  const auto value = static_cast<std::uint32_t>(colour);
  return QColor(static_cast<int>(value & 0xFF), static_cast<int>((value >> 8) & 0xFF),
                static_cast<int>((value >> 16) & 0xFF));
}

/// A plain widget would count as mere filler, which assistive tools skip.
QAccessibleInterface* accessibleLight(const QString&, QObject* object) {
  auto* light = dynamic_cast<StatusLight*>(object);
  return light != nullptr ? new QAccessibleWidget(light, QAccessible::Graphic) : nullptr;
}

}  // namespace

StatusLight::StatusLight(QWidget* parent) : QWidget(parent) {
  QAccessible::installFactory(accessibleLight);
  showColour();
}

void StatusLight::setFillColor(LightColour colour) {
  if (colour == colour_) return;
  colour_ = colour;
  showColour();
}

void StatusLight::showColour() {
  const Meaning meaning = meaningOf(colour_);
  setAccessibleDescription(meaning.colour_name);
  setToolTip(meaning.words);
  update();
}

void StatusLight::paintEvent(QPaintEvent*) {
  QPainter painter(this);
  // Filled twice, because an outline would be cut at fractional scale factors.
  painter.fillRect(rect(), palette().color(QPalette::Dark));
  painter.fillRect(rect().adjusted(1, 1, -1, -1), shown(colour_));
  if (colour_ == LightColour::kWhite) return;
  // In the lower third, so that the middle shows nothing but the colour.
  const double side = std::min(width() - 4.0, height() / 3.0);
  painter.setRenderHint(QPainter::Antialiasing);
  painter.translate((width() - side) / 2, height() - side - 2);
  painter.scale(side, side);
  painter.fillPath(shapeOf(colour_), Qt::black);
}

}  // namespace mvdirigo
