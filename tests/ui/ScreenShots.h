#pragma once

#include <QColor>
#include <QImage>
#include <QMouseEvent>
#include <QPoint>
#include <QString>
#include <QWidget>

#include <gtest/gtest.h>

// Helpers for tests that look at the real screen of a private X server (1280 x 800).
namespace screen_shots {

// Where the overlay must stand on that screen: 18 px from the right, 8 px from the top.
constexpr int capsuleX = 1280 - 230 - 18;
constexpr int capsuleY = 8;
// A point of the capsule's backdrop clear of the icon, the bar and the edge.
constexpr QPoint inside(capsuleX + 120, capsuleY + 6);

// The whole screen as the X server shows it, saved as <name>.png in the build tree's
// artifacts folder for a person to look at.
QImage grabScreen(const QString& name);

// `top` drawn over `bottom` at `alpha`.
QColor blend(const QColor& top, double alpha, const QColor& bottom);
testing::AssertionResult near(QRgb pixel, const QColor& expected, int tolerance = 4);
// How many pixels of row y, from x0 to x1 inclusive, are near `expected`.
int countNear(const QImage& image, int y, int x0, int x1, const QColor& expected,
              int tolerance = 4);
// The width, in fractions of a pixel, of a bar of colour `bar` drawn over `under` along
// row y from x0 to x1: each pixel counts by how far it went from `under` towards `bar`, so
// the smoothed ends count for their share.
double barWidth(const QImage& image, int y, int x0, int x1, const QColor& bar, const QColor& under);

// A plain window of one colour covering the screen, below the overlay; it records the
// mouse presses that reach it.
class Backdrop : public QWidget {
public:
    explicit Backdrop(const QColor& color);
    QColor color() const { return m_color; }
    QList<QPoint> presses;

protected:
    void mousePressEvent(QMouseEvent* event) override;

private:
    QColor m_color;
};

} // namespace screen_shots
