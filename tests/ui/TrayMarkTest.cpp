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
    // For a person to look at: a row per size and panel; the light look's pair, then the
    // dark look's, armed first.
    QImage strips(4 * 40, 6 * 40, QImage::Format_RGB32);
    QPainter painter(&strips);
    int row = 0;
    for (const int size : {16, 22, 32}) {
        for (const QColor& panel : panels) {
            painter.fillRect(0, row * 40, strips.width(), 40, panel);
            for (const bool dark : {false, true}) {
                SCOPED_TRACE(testing::Message() << size << " px, dark " << dark << " on "
                                                << panel.name().toStdString());
                const QImage armed = mark(true, dark, size), disarmed = mark(false, dark, size);
                const int drawn =
                    count(armed, [&](int x, int y) { return qAlpha(armed.pixel(x, y)) > 128; });
                // Recoloured, one look would differ from the other nowhere.
                EXPECT_GE(count(armed,
                                [&](int x, int y) {
                                    return std::abs(qAlpha(armed.pixel(x, y)) -
                                                    qAlpha(disarmed.pixel(x, y))) > 128;
                                }),
                          drawn / 10);
                EXPECT_GE(standingOut(armed, panel), drawn / 3);
                EXPECT_GE(standingOut(disarmed, panel), drawn / 6);
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
