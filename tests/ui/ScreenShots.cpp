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
    // Each pixel's colour projected onto the line from `under` to `bar`.
    const double r = bar.red() - under.red(), g = bar.green() - under.green(),
                 b = bar.blue() - under.blue();
    double width = 0;
    for (int x = x0; x <= x1; ++x) {
        const QRgb p = image.pixel(x, y);
        const double along = (qRed(p) - under.red()) * r + (qGreen(p) - under.green()) * g +
                             (qBlue(p) - under.blue()) * b;
        width += std::clamp(along / (r * r + g * g + b * b), 0.0, 1.0);
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
