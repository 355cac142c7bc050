#include "console/logo.h"

#include <algorithm>

#include <QFontMetrics>
#include <QPainter>

#include "console/icons.h"

namespace mvdirigo {
namespace {

constexpr const char* kName = "MVDirigo";
constexpr int kRotorSide = 64;
constexpr int kGap = 14;

}  // namespace

Logo::Logo(QWidget* parent) : QWidget(parent) {
  setObjectName("Logo");
  setAccessibleName(kName);
  setAttribute(Qt::WA_TransparentForMouseEvents);
}

QFont Logo::nameFont() const {
  QFont name = font();
  name.setPointSizeF(font().pointSizeF() * 2.4);
  name.setBold(true);
  return name;
}

int Logo::preferredWidth() const {
  return kRotorSide + kGap + QFontMetrics(nameFont()).horizontalAdvance(kName) + 2;
}

void Logo::paintEvent(QPaintEvent*) {
  QPainter painter(this);
  painter.setRenderHint(QPainter::Antialiasing);
  const QColor colour = markColour(palette());
  const int side = std::min(kRotorSide, height());
  painter.save();
  painter.translate(side / 2.0, height() / 2.0);
  painter.scale(side / 2.0, side / 2.0);
  painter.fillPath(rotor(), colour);
  painter.restore();

  painter.setFont(nameFont());
  painter.setPen(colour);
  painter.drawText(rect().adjusted(side + kGap, 0, 0, 0), Qt::AlignVCenter | Qt::AlignLeft, kName);
}

}  // namespace mvdirigo
