#include "ScreenShots.h"

#include <QDir>
#include <QGuiApplication>
#include <QPixmap>
#include <QScreen>

#include <algorithm>
#include <cstdlib>

namespace screen_shots {

QImage grabScreen(const QString& name)
{
    QImage image = QGuiApplication::primaryScreen()->grabWindow(0).toImage().convertToFormat(
        QImage::Format_RGB32);
    const QString dir = QStringLiteral(VELOTIDE_ARTIFACTS_DIR);
    QDir().mkpath(dir);
    image.save(dir + QLatin1Char('/') + name + QStringLiteral(".png"));
    return image;
}

QColor blend(const QColor& top, double alpha, const QColor& bottom)
{
    auto mix = [alpha](int t, int b) { return int(std::lround(t * alpha + b * (1 - alpha))); };
    return QColor(mix(top.red(), bottom.red()), mix(top.green(), bottom.green()),
                  mix(top.blue(), bottom.blue()));
}

testing::AssertionResult near(QRgb pixel, const QColor& expected, int tolerance)
{
    if (std::abs(qRed(pixel) - expected.red()) <= tolerance &&
        std::abs(qGreen(pixel) - expected.green()) <= tolerance &&
        std::abs(qBlue(pixel) - expected.blue()) <= tolerance)
        return testing::AssertionSuccess();
    return testing::AssertionFailure()
           << "rgb(" << qRed(pixel) << ", " << qGreen(pixel) << ", " << qBlue(pixel)
           << ") is not near " << expected.name().toStdString();
}

int countNear(const QImage& image, int y, int x0, int x1, const QColor& expected, int tolerance)
{
    int count = 0;
    for (int x = x0; x <= x1; ++x) {
        if (near(image.pixel(x, y), expected, tolerance))
            ++count;
    }
    return count;
}

double barWidth(const QImage& image, int y, int x0, int x1, const QColor& bar, const QColor& under)
{
    // Measure along the channel where the two colours differ most.
    const int channels[3][2] = {
        {bar.red(), under.red()}, {bar.green(), under.green()}, {bar.blue(), under.blue()}};
    int best = 0;
    for (int c = 1; c < 3; ++c) {
        if (std::abs(channels[c][0] - channels[c][1]) >
            std::abs(channels[best][0] - channels[best][1]))
            best = c;
    }
    const double span = channels[best][0] - channels[best][1];
    double width = 0;
    for (int x = x0; x <= x1; ++x) {
        const QRgb p = image.pixel(x, y);
        const int value = best == 0 ? qRed(p) : best == 1 ? qGreen(p) : qBlue(p);
        width += std::clamp((value - channels[best][1]) / span, 0.0, 1.0);
    }
    return width;
}

Backdrop::Backdrop(const QColor& color)
    : QWidget(nullptr, Qt::FramelessWindowHint)
    , m_color(color)
{
    QPalette p = palette();
    p.setColor(QPalette::Window, color);
    setPalette(p);
    setAutoFillBackground(true);
    setGeometry(QGuiApplication::primaryScreen()->geometry());
}

void Backdrop::mousePressEvent(QMouseEvent* event)
{
    presses.append(event->globalPosition().toPoint());
}

} // namespace screen_shots
