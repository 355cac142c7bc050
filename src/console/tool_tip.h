#pragma once

#include <QString>

class QWidget;

namespace mvdirigo {

/// `text` as a tool tip that shows it letter by letter, even where it looks like markup.
[[nodiscard]] QString plainToolTip(const QString& text);

/// `text` on one line; of a longer text the first 300 characters and "…": as much as a tip has room
/// for on any screen.
QString shortened(const QString& text);

/// Gives `widget` the tool tip `text`, letter by letter, and assistive tools the same words.
void setPlainToolTip(QWidget& widget, const QString& text);

}  // namespace mvdirigo
