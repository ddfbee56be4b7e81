#include "ui/SymbolIcons.h"

#include "common/QtPrinters.h"

#include <QImage>

#include <gtest/gtest.h>

#include <cstdlib>

namespace {

const char* const stateSymbols[] = {"speaker.wave.3.fill", "speaker.slash.fill",
                                    "speaker.badge.exclamationmark.fill"};

// Answers how many pixels are drawn, and whether every clearly drawn pixel has the colour
// (the faintest edge pixels lose precision to premultiplied alpha).
std::pair<int, bool> inspect(const QImage& image, const QColor& color)
{
    int drawn = 0;
    bool allInColor = true;
    for (int y = 0; y < image.height(); ++y) {
        for (int x = 0; x < image.width(); ++x) {
            const QColor pixel = image.pixelColor(x, y);
            if (pixel.alpha() == 0)
                continue;
            ++drawn;
            if (pixel.alpha() < 64)
                continue;
            allInColor = allInColor && std::abs(pixel.red() - color.red()) <= 4 &&
                         std::abs(pixel.green() - color.green()) <= 4 &&
                         std::abs(pixel.blue() - color.blue()) <= 4;
        }
    }
    return {drawn, allInColor};
}

class SymbolIconsTest : public ::testing::Test {
protected:
    void TearDown() override
    {
        QIcon::setThemeName(savedTheme);
        QIcon::setThemeSearchPaths(savedPaths);
    }
    QString savedTheme = QIcon::themeName();
    QStringList savedPaths = QIcon::themeSearchPaths();
};

TEST_F(SymbolIconsTest, ShippedPicturesStandInWhenTheThemeHasNone)
{
    QIcon::setThemeName("velotide-no-such-theme");
    SymbolIcons icons;
    const QColor tint(200, 30, 30);
    QImage previous;
    for (const char* name : stateSymbols) {
        const SymbolIcons::Icon icon = icons.symbol(name);
        ASSERT_FALSE(icon.isNull()) << name;
        EXPECT_TRUE(icon.tintable);
        const QPixmap pixmap = SymbolIcons::render(icon, {22, 22}, 2.0, tint);
        EXPECT_EQ(pixmap.size(), QSize(44, 44)) << "drawn at the screen's own pixel density";
        EXPECT_EQ(pixmap.deviceIndependentSize(), QSizeF(22, 22));
        const QImage image = pixmap.toImage().convertToFormat(QImage::Format_ARGB32);
        const auto [drawn, allInColor] = inspect(image, tint);
        EXPECT_GT(drawn, 200) << name;
        EXPECT_TRUE(allInColor) << name << " is drawn in the tint only";
        EXPECT_NE(image, previous) << name << " differs from the previous state's picture";
        previous = image;
    }
    EXPECT_TRUE(icons.symbol("no.such.symbol").isNull());
}

// Which theme icon stands for which state is the code's own table; one shows the preference.
TEST_F(SymbolIconsTest, PrefersTheDesktopThemesSymbolicIcons)
{
    // Where a desktop session's platform theme looks; this test runs without one.
    QIcon::setThemeSearchPaths({"/usr/share/icons"});
    QIcon::setThemeName("Adwaita");
    if (!QIcon::hasThemeIcon("audio-volume-high-symbolic"))
        GTEST_SKIP() << "the Adwaita icon theme is not installed";
    SymbolIcons icons;
    const SymbolIcons::Icon high = icons.symbol("speaker.wave.3.fill");
    EXPECT_EQ(high.icon.name(), "audio-volume-high-symbolic");
    EXPECT_TRUE(high.tintable);
}

} // namespace
