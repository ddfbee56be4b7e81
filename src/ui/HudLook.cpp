#include "ui/HudLook.h"

#include <algorithm>

namespace HudLook {

double fillWidth(int volume)
{
    if (volume == 0)
        return 0;
    const double fraction = std::clamp(volume / 100.0, 0.0, 1.0);
    return std::max(trackHeight, fraction * trackWidth);
}

QRectF fillRect(int volume)
{
    return {trackX, trackY, fillWidth(volume), trackHeight};
}

QRectF trackRect()
{
    return {trackX, trackY, trackWidth, trackHeight};
}

QString symbolName(const HudReading& reading)
{
    if (reading.unreachable)
        return QStringLiteral("speaker.badge.exclamationmark.fill");
    if (reading.muted)
        return QStringLiteral("speaker.slash.fill");
    return QStringLiteral("speaker.wave.3.fill");
}

QColor withAlpha(QColor color, double alpha)
{
    color.setAlphaF(float(color.alphaF() * alpha));
    return color;
}

QColor iconColor(const HudReading& reading, const QColor& label)
{
    return reading.unreachable ? withAlpha(label, secondaryAlpha) : label;
}

QColor fillColor(const HudReading& reading, const QColor& label)
{
    if (reading.unreachable)
        return withAlpha(label, tertiaryAlpha);
    if (reading.muted)
        return withAlpha(label, mutedFillAlpha);
    return label;
}

QColor trackColor(bool increaseContrast, const QColor& label)
{
    return withAlpha(label, increaseContrast ? secondaryAlpha : tertiaryAlpha);
}

} // namespace HudLook
