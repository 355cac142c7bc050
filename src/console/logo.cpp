#include "console/logo.h"

#include <algorithm>

#include <QFontMetrics>
#include <QPainter>

namespace mvdirigo {
namespace {

constexpr const char* kName = "MVDirigo";
constexpr int kRotorTeeth = 12;
constexpr int kRotorSide = 64;
constexpr int kGap = 14;
const QColor kAccent(0, 102, 153);

}  // namespace

Logo::Logo(QWidget* parent) : QWidget(parent) {
  setObjectName("Logo");
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
  const int side = std::min(kRotorSide, height());
  painter.save();
  painter.translate(side / 2.0, height() / 2.0);
  painter.scale(side / 2.0, side / 2.0);
  painter.setPen(Qt::NoPen);
  painter.setBrush(kAccent);
  for (int tooth = 0; tooth < kRotorTeeth; ++tooth) {
    painter.drawRect(QRectF(-0.11, -1.0, 0.22, 0.3));
    painter.rotate(360.0 / kRotorTeeth);
  }
  painter.drawEllipse(QPointF(0, 0), 0.78, 0.78);
  painter.setBrush(palette().color(QPalette::Window));
  painter.drawEllipse(QPointF(0, 0), 0.3, 0.3);
  painter.restore();

  painter.setFont(nameFont());
  painter.setPen(kAccent);
  painter.drawText(rect().adjusted(side + kGap, 0, 0, 0), Qt::AlignVCenter | Qt::AlignLeft, kName);
}

}  // namespace mvdirigo
