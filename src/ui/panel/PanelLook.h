#pragma once

#include <QColor>
#include <QFont>
#include <QPalette>

// The panel's colours and type, all taken from the widget palette so that a light or a dark
// application palette changes the whole panel at once. Sizes are in logical pixels.
namespace panel_look {

enum class Shade {
    primary,   // the palette's text
    secondary, // faded text: subtitles, labels, idle buttons
    tertiary,  // fainter still: the detail line, placeholder symbols
    accent,    // the palette's highlight: buttons whose state is on
    warning,   // orange
    critical,  // red
};

QColor color(const QPalette& palette, Shade shade);
// The palette counts as dark when its window is darker than its text.
bool isDark(const QPalette& palette);
QFont font(const QFont& base, qreal pixelSize, bool bold = false);

} // namespace panel_look
