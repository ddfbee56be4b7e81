#include "ui/panel/TrayMark.h"

#include <QDir>
#include <QImage>
#include <QPainter>

#include <gtest/gtest.h>

#include <cstdlib>

namespace {

QImage mark(bool armed, bool dark, int size)
{
    return TrayMark::icon(armed, dark)
        .pixmap(QSize(size, size), 1.0)
        .toImage()
        .convertToFormat(QImage::Format_ARGB32);
}

int count(const QImage& image, const std::function<bool(int x, int y)>& holds)
{
    int n = 0;
    for (int y = 0; y < image.height(); ++y) {
        for (int x = 0; x < image.width(); ++x)
            n += holds(x, y);
    }
    return n;
}

// How many pixels of the mark, laid on `panel`, stand out from it (lightness at least a
// third of the range away).
int standingOut(const QImage& image, const QColor& panel)
{
    QImage onPanel(image.size(), QImage::Format_RGB32);
    onPanel.fill(panel);
    QPainter(&onPanel).drawImage(0, 0, image);
    return count(onPanel, [&](int x, int y) {
        return std::abs(onPanel.pixelColor(x, y).lightness() - panel.lightness()) >= 85;
    });
}

TEST(TrayMarkTest, LooksDifferInShapeAndShowOnLightAndDarkPanels)
{
    const QColor panels[] = {QColor(0xf0, 0xf0, 0xf0), QColor(0x24, 0x24, 0x24)};
    const int sizes[] = {16, 22, 32};
    // For a person to look at: each size on both panels, the light look's pair then the
    // dark look's, armed first.
    QImage strips(4 * 40, 2 * 3 * 40, QImage::Format_RGB32);
    QPainter painter(&strips);
    for (int s = 0; s < 3; ++s) {
        const int size = sizes[s];
        for (const bool dark : {false, true}) {
            SCOPED_TRACE(testing::Message() << size << (dark ? " px, dark" : " px, light"));
            const QImage armed = mark(true, dark, size);
            const QImage disarmed = mark(false, dark, size);
            ASSERT_EQ(armed.size(), QSize(size, size));
            const int shapeDiffers = count(armed, [&](int x, int y) {
                return std::abs(qAlpha(armed.pixel(x, y)) - qAlpha(disarmed.pixel(x, y))) > 128;
            });
            const int drawn =
                count(armed, [&](int x, int y) { return qAlpha(armed.pixel(x, y)) > 128; });
            // Recoloured, one look would differ from the other nowhere.
            EXPECT_GE(shapeDiffers, drawn / 10);

            for (int p = 0; p < 2; ++p) {
                const QColor& panel = panels[p];
                SCOPED_TRACE(panel.name().toStdString());
                EXPECT_GE(standingOut(armed, panel), drawn / 3);
                EXPECT_GE(standingOut(disarmed, panel), drawn / 6);
                const QPoint at((dark ? 2 : 0) * 40, (2 * s + p) * 40);
                painter.fillRect(QRect(at, QSize(80, 40)), panel);
                painter.drawImage(at + QPoint(4, 4), armed);
                painter.drawImage(at + QPoint(44, 4), disarmed);
            }
        }
    }
    painter.end();
    QDir().mkpath(VELOTIDE_ARTIFACTS_DIR);
    strips.save(VELOTIDE_ARTIFACTS_DIR "/tray-mark.png");
    strips.scaled(strips.size() * 3).save(VELOTIDE_ARTIFACTS_DIR "/tray-mark-enlarged.png");
}

} // namespace
