#include "console/icons.h"

#include <algorithm>
#include <cmath>

#include <QtWidgets>
#include <gtest/gtest.h>

using namespace mvdirigo;

/// Between two colours, from 1 to 21, by the Web Content Accessibility Guidelines.
double contrast(QColor one, QColor other) {
  const auto luminance = [](const QColor& colour) {
    const auto linear = [](float part) { return std::pow(part, 2.2); };
    return 0.2126 * linear(colour.redF()) + 0.7152 * linear(colour.greenF()) +
           0.0722 * linear(colour.blueF()) + 0.05;
  };
  const auto [darker, lighter] = std::minmax({luminance(one), luminance(other)});
  return lighter / darker;
}

TEST(Icons, AreReadableInEveryPalette) {
  const QPalette before = QApplication::palette();
  for (const QColor& button : {QColor("#efefef"), QColor("#353535"), QColor("#8a8a8a")}) {
    QPalette palette(button);
    palette.setColor(QPalette::Disabled, QPalette::ButtonText, QColor("#787878"));
    QApplication::setPalette(palette);
    EXPECT_GE(contrast(markColour(palette), button), 4.4) << button.name().toStdString();
    for (int glyph = 0; glyph <= static_cast<int>(Glyph::kTraffic); ++glyph) {
      const auto strongest = [&](QIcon::Mode mode, double scale) {
        QImage image = icon(Glyph{glyph}).pixmap(QSize(16, 16), scale, mode).toImage();
        EXPECT_EQ(image.size(), QSize(16, 16) * scale);
        image.convertTo(QImage::Format_ARGB32);
        const auto* pixels = reinterpret_cast<const QRgb*>(image.constBits());  // 0xAARRGGBB
        return QColor(*std::max_element(pixels, pixels + image.width() * image.height()));
      };
      EXPECT_GE(contrast(strongest(QIcon::Normal, 1), button), 2.9)
          << glyph << " on " << button.name().toStdString();
      EXPECT_EQ(strongest(QIcon::Disabled, 1.5), QColor("#787878")) << glyph;
    }
  }
  QApplication::setPalette(before);
}
