#include "ui/panel/TrayMark.h"

#include <QDir>
#include <QImage>
#include <QPainter>

#include <gtest/gtest.h>

#include <cstdlib>

namespace {

// How many places hold for `holds(image's pixel, other's pixel)`.
template <typename Holds>
int count(const QImage& image, const QImage& other, Holds holds)
{
    int n = 0;
    for (int y = 0; y < image.height(); ++y) {
        for (int x = 0; x < image.width(); ++x)
            n += holds(image.pixel(x, y), other.pixel(x, y));
    }
    return n;
}

QImage on(const QColor& panel, const QImage& image)
{
    QImage laid(image.size(), QImage::Format_RGB32);
    laid.fill(panel);
    QPainter(&laid).drawImage(0, 0, image);
    return laid;
}

TEST(TrayMarkTest, LooksDifferInShapeAndShowOnLightAndDarkPanels)
{
    // For a person to look at: a row per size and panel; the light look's pair, then the
    // dark look's, armed first.
    QImage strips(160, 240, QImage::Format_RGB32);
    QPainter painter(&strips);
    int row = 0;
    for (const int size : {16, 22, 32}) {
        for (const QColor panel : {QColor(0xf0, 0xf0, 0xf0), QColor(0x24, 0x24, 0x24)}) {
            painter.fillRect(0, row * 40, strips.width(), 40, panel);
            for (const bool dark : {false, true}) {
                SCOPED_TRACE(testing::Message() << size << " px, dark " << dark << " on "
                                                << panel.name().toStdString());
                const QImage armed =
                    TrayMark::icon(true, dark).pixmap(QSize(size, size), 1.0).toImage();
                const QImage disarmed =
                    TrayMark::icon(false, dark).pixmap(QSize(size, size), 1.0).toImage();
                ASSERT_EQ(armed.size(), QSize(size, size));
                const int drawn = count(armed, armed, [](QRgb a, QRgb) { return qAlpha(a) > 128; });
                // Recoloured, one look would differ from the other nowhere.
                EXPECT_GE(
                    count(armed, disarmed,
                          [](QRgb a, QRgb d) { return std::abs(qAlpha(a) - qAlpha(d)) > 128; }),
                    drawn / 10);
                // Pixels a third of the lightness range away from the panel's.
                const auto standsOut = [&panel](QRgb p, QRgb) {
                    return std::abs(QColor(p).lightness() - panel.lightness()) >= 85;
                };
                EXPECT_GE(count(on(panel, armed), armed, standsOut), drawn / 3);
                EXPECT_GE(count(on(panel, disarmed), disarmed, standsOut), drawn / 6);
                painter.drawImage(dark * 80 + 4, row * 40 + 4, armed);
                painter.drawImage(dark * 80 + 44, row * 40 + 4, disarmed);
            }
            ++row;
        }
    }
    painter.end();
    QDir().mkpath(VELOTIDE_ARTIFACTS_DIR);
    strips.scaled(strips.size() * 3).save(VELOTIDE_ARTIFACTS_DIR "/tray-mark.png");
}

} // namespace
