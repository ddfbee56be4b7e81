#include "ui/panel/TrayMark.h"

#include <QPainter>
#include <QPainterPath>
#include <QPainterPathStroker>

#include <algorithm>

namespace {

// The mark is drawn on a 24-unit square.
constexpr qreal grid = 24;
const QRectF body(5, 2, 14, 20);
constexpr qreal bodyRadius = 3;
const QPointF wooferCentre(12, 14.5);
constexpr qreal wooferRadius = 4.6;
const QPointF tweeterCentre(12, 6.6);
constexpr qreal tweeterRadius = 1.7;
// Lines of the hollow form.
constexpr qreal line = 1.8;

QPainterPath circle(const QPointF& centre, qreal radius)
{
    QPainterPath path;
    path.addEllipse(centre, radius, radius);
    return path;
}

QPainterPath roundedRect(const QRectF& rect, qreal radius)
{
    QPainterPath path;
    path.addRoundedRect(rect, radius, radius);
    return path;
}

QPainterPath solid()
{
    return roundedRect(body, bodyRadius)
        .subtracted(circle(wooferCentre, wooferRadius))
        .united(circle(wooferCentre, 2))
        .subtracted(circle(tweeterCentre, tweeterRadius));
}

// Below 20 px the woofer's ring would blur into the box and the stroke: it is left out.
QPainterPath struckThrough(bool withWoofer)
{
    const QPainterPath outline =
        roundedRect(body, bodyRadius)
            .subtracted(
                roundedRect(body.adjusted(line, line, -line, -line), bodyRadius - line / 2));
    const QPainterPath woofer =
        circle(wooferCentre, wooferRadius).subtracted(circle(wooferCentre, wooferRadius - line));
    const QPainterPath speaker = withWoofer ? outline.united(woofer) : outline;

    QPainterPath slash;
    slash.moveTo(3, 3);
    slash.lineTo(21, 21);
    QPainterPathStroker stroker;
    stroker.setCapStyle(Qt::RoundCap);
    stroker.setWidth(line + 0.4);
    const QPainterPath stroke = stroker.createStroke(slash);
    // A gap either side of the stroke keeps it apart from the lines it crosses.
    stroker.setWidth(line + 0.4 + 2 * 1.2);
    return speaker.subtracted(stroker.createStroke(slash)).united(stroke);
}

} // namespace

namespace TrayMark {

QPixmap pixmap(bool armed, bool dark, int size, qreal devicePixelRatio)
{
    QPixmap pixmap(QSize(size, size) * devicePixelRatio);
    pixmap.setDevicePixelRatio(devicePixelRatio);
    pixmap.fill(Qt::transparent);

    const QColor ink = dark ? QColor(0xf4, 0xf6, 0xf8) : QColor(0x1c, 0x1e, 0x21);
    const QColor edge = dark ? QColor(0x12, 0x14, 0x16, 230) : QColor(0xff, 0xff, 0xff, 230);
    const QPainterPath mark = armed ? solid() : struckThrough(size >= 20);
    // About one device pixel of outline at every size.
    const qreal scale = size / grid;
    QPainterPathStroker halo;
    halo.setJoinStyle(Qt::RoundJoin);
    halo.setWidth(2 * std::max(1.0, size / 22.0) / scale);

    QPainter painter(&pixmap);
    painter.setRenderHint(QPainter::Antialiasing);
    painter.scale(scale, scale);
    painter.setPen(Qt::NoPen);
    painter.setBrush(edge);
    painter.drawPath(halo.createStroke(mark).united(mark));
    painter.setBrush(ink);
    painter.drawPath(mark);
    return pixmap;
}

QIcon icon(bool armed, bool dark)
{
    QIcon icon;
    for (const qreal ratio : {1.0, 2.0}) {
        for (const int size : {16, 22, 24, 32, 48})
            icon.addPixmap(pixmap(armed, dark, size, ratio));
    }
    return icon;
}

} // namespace TrayMark
