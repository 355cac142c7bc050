#pragma once

#include <QPainterPath>

namespace mvdirigo {

// The shapes that tell what became of a command, as outlines in the unit square.
QPainterPath checkShape();
QPainterPath crossShape();
/// A triangle with an exclamation mark left out of it.
QPainterPath warningShape();
/// Three dots in a row.
QPainterPath dotsShape();

}  // namespace mvdirigo
