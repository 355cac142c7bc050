#include "console/icons.h"

#include <algorithm>
#include <array>
#include <utility>

#include <QFontMetrics>
#include <QGuiApplication>
#include <QIconEngine>
#include <QPainter>
#include <QPalette>
#include <QPixmap>

#include "console/colours.h"

namespace mvdirigo {
namespace {

const Shades kBlue{{0, 102, 153}, {90, 180, 238}};
const Shades kRed{{198, 32, 32}, {255, 92, 82}};

/// The glyphs are drawn on a square of this side. Lines lie on whole numbers: so they are sharp at
/// the usual size of a button's icon, 16.
constexpr double kGrid = 16;
constexpr double kLineWidth = 2;

/// Fine enough for a glyph of 256 pixels.
constexpr double kCurveThreshold = 0.02;

/// What a pen makes of `line`.
QPainterPath penned(const QPainterPath& line) {
  QPainterPathStroker pen;
  pen.setWidth(kLineWidth);
  pen.setCapStyle(Qt::FlatCap);
  pen.setJoinStyle(Qt::MiterJoin);
  pen.setCurveThreshold(kCurveThreshold);
  return pen.createStroke(line);
}

QPainterPath polyline(std::initializer_list<QPointF> points) {
  QPainterPath line;
  line.addPolygon(QPolygonF(QList<QPointF>(points)));
  return line;
}

QPainterPath polygon(std::initializer_list<QPointF> points) {
  QPainterPath area = polyline(points);
  area.closeSubpath();
  return area;
}

QPainterPath sliders() {
  constexpr double kKnob = 2.6;
  QPainterPath path;
  for (const QPointF knob : {QPointF(10.5, 3), QPointF(5, 8), QPointF(10.5, 13)}) {
    path += penned(polyline({{1, knob.y()}, {15, knob.y()}}));
    path.addEllipse(knob, kKnob, kKnob);
  }
  return path;
}

QPainterPath disc() {
  QPainterPath path;
  path.addEllipse(QPointF(8, 8), 5.5, 5.5);
  return path;
}

QPainterPath square() {
  QPainterPath path;
  path.addRect(3, 3, 10, 10);
  return path;
}

QPainterPath triangle() { return polygon({{3.5, 2}, {14, 8}, {3.5, 14}}); }

QPainterPath loop() {
  QPainterPath ring;
  const QRectF around(2.5, 3.5, 11, 11);
  ring.arcMoveTo(around, 0);
  ring.arcTo(around, 0, -280);
  QPainterPath path = penned(ring);
  path += polygon({{8.6, 0}, {13.6, 3.6}, {8.6, 7.2}});
  return path;
}

QPainterPath questionMark() {
  QPainterPath line(QPointF(4.5, 5.5));
  line.arcTo(QRectF(4.5, 2, 7, 7), 180, -225);
  line.quadTo(8, 9.2, 8, 11);
  QPainterPath path = penned(line);
  path.addEllipse(QPointF(8, 13.6), 1.4, 1.4);
  return path;
}

QPainterPath turnBack() {
  QPainterPath line(QPointF(5, 5));
  line.lineTo(10, 5);
  line.arcTo(QRectF(6, 5, 8, 8), 90, -180);
  line.lineTo(4, 13);
  QPainterPath path = penned(line);
  path += polygon({{1, 5}, {6, 0.5}, {6, 9.5}});
  return path;
}

QPainterPath tray() { return penned(polyline({{2, 10}, {2, 14}, {14, 14}, {14, 10}})); }

QPainterPath arrowUpFromTray() {
  return tray() + penned(polyline({{8, 11}, {8, 3}})) +
         polygon({{8, 0.5}, {12.5, 5.5}, {3.5, 5.5}});
}

QPainterPath arrowDownIntoTray() {
  return tray() + penned(polyline({{8, 1}, {8, 8}})) +
         polygon({{8, 11.5}, {12.5, 6.5}, {3.5, 6.5}});
}

QPainterPath oppositeArrows() {
  return penned(polyline({{1, 5}, {11, 5}})) + polygon({{15, 5}, {10, 1}, {10, 9}}) +
         penned(polyline({{5, 11}, {15, 11}})) + polygon({{1, 11}, {6, 7}, {6, 15}});
}

QPainterPath pathOf(Glyph glyph) {
  switch (glyph) {
    case Glyph::kSettings:
      return sliders();
    case Glyph::kRecord:
      return disc();
    case Glyph::kStopRecording:
    case Glyph::kStopPlayback:
      return square();
    case Glyph::kPlayback:
      return triangle();
    case Glyph::kPlayEndless:
      return loop();
    case Glyph::kHelp:
      return questionMark();
    case Glyph::kLoadDefault:
      return turnBack();
    case Glyph::kLoadStrings:
      return arrowUpFromTray();
    case Glyph::kSaveStrings:
      return arrowDownIntoTray();
    case Glyph::kTraffic:
      return oppositeArrows();
  }
  return {};
}

QColor colourOf(Glyph glyph, QIcon::Mode mode) {
  const QPalette palette = QGuiApplication::palette();
  if (mode == QIcon::Disabled) return palette.color(QPalette::Disabled, QPalette::ButtonText);
  const QColor button = palette.color(QPalette::Active, QPalette::Button);
  const QColor text = palette.color(QPalette::Active, QPalette::ButtonText);
  switch (glyph) {
    case Glyph::kRecord:
    case Glyph::kStopRecording:
      return readable(kRed, button, kGraphicsContrast, text);
    case Glyph::kStopPlayback:
    case Glyph::kPlayback:
    case Glyph::kPlayEndless:
      return readable(kBlue, button, kGraphicsContrast, text);
    default:
      return text;
  }
}

/// An icon that is drawn when it is needed. `Drawing` is called with a painter on a square of side
/// `kGrid`, and the mode.
template <class Drawing>
class DrawnIcon : public QIconEngine {
 public:
  explicit DrawnIcon(Drawing draw) : draw_(std::move(draw)) {}

  QIconEngine* clone() const override { return new DrawnIcon(draw_); }

  void paint(QPainter* painter, const QRect& rect, QIcon::Mode mode, QIcon::State) override {
    const double side = std::min(rect.width(), rect.height());
    painter->save();
    painter->setRenderHint(QPainter::Antialiasing);
    painter->translate(rect.x() + (rect.width() - side) / 2, rect.y() + (rect.height() - side) / 2);
    painter->scale(side / kGrid, side / kGrid);
    draw_(*painter, mode);
    painter->restore();
  }

  /// It has any size; these are the ones that a window hands to the desktop at its start. The
  /// toolkit's own choice goes up to 128, which takes a millisecond.
  QList<QSize> availableSizes(QIcon::Mode, QIcon::State) override {
    return {{16, 16}, {32, 32}, {64, 64}};
  }

  QPixmap pixmap(const QSize& size, QIcon::Mode mode, QIcon::State state) override {
    QPixmap picture(size);
    picture.fill(Qt::transparent);
    QPainter painter(&picture);
    paint(&painter, picture.rect(), mode, state);
    return picture;
  }

 private:
  Drawing draw_;
};

void drawGlyph(QPainter& painter, Glyph glyph, QIcon::Mode mode) {
  QPainterPath path = pathOf(glyph);
  path.setFillRule(Qt::WindingFill);
  painter.fillPath(path, colourOf(glyph, mode));
}

/// On a tile of its own, because a title bar may have any colour.
void drawApplication(QPainter& painter) {
  constexpr double kCorner = 3;
  constexpr double kRadius = 6.6;
  painter.setPen(Qt::NoPen);
  painter.setBrush(kBlue.on_light);
  painter.drawRoundedRect(QRectF(0, 0, kGrid, kGrid), kCorner, kCorner);
  painter.translate(kGrid / 2, kGrid / 2);
  painter.scale(kRadius, kRadius);
  painter.fillPath(rotor(), Qt::white);
}

}  // namespace

QIcon icon(Glyph glyph) {
  return QIcon(new DrawnIcon(
      [glyph](QPainter& painter, QIcon::Mode mode) { drawGlyph(painter, glyph, mode); }));
}

int iconSide(const QFont& font) { return std::max(16, QFontMetrics(font).ascent()); }

QIcon applicationIcon() {
  return QIcon(new DrawnIcon([](QPainter& painter, QIcon::Mode) { drawApplication(painter); }));
}

QPainterPath rotor() {
  constexpr int kTeeth = 12;
  QPainterPath path;
  path.setFillRule(Qt::WindingFill);
  path.addEllipse(QPointF(0, 0), 0.78, 0.78);
  QPainterPath tooth;
  tooth.addRect(-0.11, -1, 0.22, 0.3);
  for (int at = 0; at < kTeeth; ++at) {
    path.addPath(QTransform().rotate(360.0 * at / kTeeth).map(tooth));
  }
  QPainterPath hole;
  hole.addEllipse(QPointF(0, 0), 0.3, 0.3);
  path.addPath(hole.toReversed());
  return path;
}

QColor markColour(const QPalette& palette) {
  return readable(kBlue, palette.color(QPalette::Window), kTextContrast,
                  palette.color(QPalette::WindowText));
}

}  // namespace mvdirigo
