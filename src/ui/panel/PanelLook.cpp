#include "ui/panel/PanelLook.h"

namespace panel_look {

bool isDark(const QPalette& palette)
{
    return palette.color(QPalette::Window).lightnessF() <
           palette.color(QPalette::WindowText).lightnessF();
}

QColor color(const QPalette& palette, Shade shade)
{
    const bool dark = isDark(palette);
    QColor text = palette.color(QPalette::WindowText);
    switch (shade) {
    case Shade::primary:
        return text;
    case Shade::secondary:
        text.setAlphaF(0.62f);
        return text;
    case Shade::tertiary:
        text.setAlphaF(0.38f);
        return text;
    case Shade::accent:
        return palette.color(QPalette::Highlight);
    case Shade::warning:
        // Darker on a light window so that the small text keeps its contrast.
        return dark ? QColor(255, 159, 10) : QColor(196, 98, 0);
    case Shade::critical:
        return dark ? QColor(255, 69, 58) : QColor(215, 0, 21);
    }
    return text;
}

QFont font(const QFont& base, qreal pixelSize, bool bold)
{
    QFont f = base;
    f.setPixelSize(qRound(pixelSize));
    f.setBold(bold);
    return f;
}

} // namespace panel_look
