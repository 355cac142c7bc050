#include "console/mark_shapes.h"

#include <QPainterPathStroker>

namespace mvdirigo {
namespace {

QPainterPath stroke(const QPainterPath& path) {
  QPainterPathStroker stroker;
  stroker.setWidth(0.17);
  stroker.setCapStyle(Qt::RoundCap);
  stroker.setJoinStyle(Qt::RoundJoin);
  return stroker.createStroke(path);
}

}  // namespace

QPainterPath checkShape() {
  QPainterPath path(QPointF(0.12, 0.55));
  path.lineTo(0.38, 0.82);
  path.lineTo(0.88, 0.2);
  return stroke(path);
}

QPainterPath crossShape() {
  QPainterPath path(QPointF(0.16, 0.16));
  path.lineTo(0.84, 0.84);
  path.moveTo(0.84, 0.16);
  path.lineTo(0.16, 0.84);
  return stroke(path);
}

QPainterPath warningShape() {
  QPainterPath path;
  path.addPolygon(QPolygonF({{0.5, 0.02}, {1.0, 0.95}, {0.0, 0.95}, {0.5, 0.02}}));
  path.addRect(0.43, 0.34, 0.14, 0.3);
  path.addRect(0.43, 0.71, 0.14, 0.13);
  return path;
}

QPainterPath dotsShape() {
  QPainterPath path;
  for (const double x : {0.15, 0.5, 0.85}) path.addEllipse(QPointF(x, 0.5), 0.13, 0.13);
  return path;
}

}  // namespace mvdirigo
