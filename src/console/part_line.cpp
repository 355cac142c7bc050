#include "console/part_line.h"

#include <QPainter>

#include "console/colours.h"

namespace mvdirigo {

void PartLine::paintEvent(QPaintEvent*) { QPainter(this).fillRect(rect(), lineColour(palette())); }

}  // namespace mvdirigo
