#pragma once

#include <QColor>
#include <QRectF>
#include <QString>

// What the overlay shows for one key press.
struct HudReading {
    int volume = 0;
    bool muted = false;
    bool unreachable = false;
    QString speaker;

    bool operator==(const HudReading&) const = default;
};

// The overlay's geometry in device-independent pixels, origin top-left, and the colours
// derived from the desktop's text colour.
namespace HudLook {

constexpr int panelWidth = 230;
constexpr int panelHeight = 38;
constexpr double cornerRadius = panelHeight / 2.0; // a capsule
constexpr int rightMargin = 18;
constexpr int topMargin = 8;
constexpr double trackX = 46;
constexpr double trackY = 16;
constexpr double trackHeight = 6;
constexpr double trackWidth = panelWidth - trackX - 18; // 166
constexpr double trackRadius = trackHeight / 2;
constexpr QRectF iconRect{16, 8, 22, 22};

// Shades of the text colour standing in for the secondary and tertiary label colours.
constexpr double secondaryAlpha = 0.55;
constexpr double tertiaryAlpha = 0.25;
constexpr double mutedFillAlpha = 0.35;

// 0 for silence; otherwise at least the bar's height, so a tiny level reads as a round
// dot rather than a sliver.
double fillWidth(int volume);
QRectF fillRect(int volume);
QRectF trackRect();

// The symbol names of the three states (unreachable wins over muted).
QString symbolName(const HudReading& reading);
QColor withAlpha(QColor color, double alpha);
QColor iconColor(const HudReading& reading, const QColor& label);
QColor fillColor(const HudReading& reading, const QColor& label);
QColor trackColor(bool increaseContrast, const QColor& label);

} // namespace HudLook
