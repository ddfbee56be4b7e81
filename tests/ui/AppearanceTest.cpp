#include "ui/Appearance.h"

#include <QApplication>

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>

namespace {

using Preference = ColorScheme::Preference;

double luminance(const QColor& color)
{
    const auto linear = [](double c) {
        return c <= 0.03928 ? c / 12.92 : std::pow((c + 0.055) / 1.055, 2.4);
    };
    return 0.2126 * linear(color.redF()) + 0.7152 * linear(color.greenF()) +
           0.0722 * linear(color.blueF());
}

// The contrast ratio of the Web Content Accessibility Guidelines, 1 to 21.
double contrast(const QColor& a, const QColor& b)
{
    const double la = luminance(a), lb = luminance(b);
    return (std::max(la, lb) + 0.05) / (std::min(la, lb) + 0.05);
}

TEST(AppearanceTest, OwnPaletteOnlyWhenTheDesktopsDoesNotFit)
{
    // The test platform's palette is a light one.
    const QPalette desktop = QApplication::palette();
    Appearance appearance;
    ASSERT_FALSE(appearance.isDark());

    appearance.apply(Preference::Dark);
    EXPECT_TRUE(appearance.isDark());
    EXPECT_EQ(QApplication::palette(), Appearance::palette(true));

    for (const Preference preference : {Preference::Light, Preference::None}) {
        appearance.apply(Preference::Dark);
        appearance.apply(preference);
        EXPECT_EQ(QApplication::palette(), desktop);
    }
}

TEST(AppearanceTest, ColoursAreLegibleOnTheirBackgrounds)
{
    for (const bool dark : {false, true}) {
        SCOPED_TRACE(dark ? "dark" : "light");
        const QPalette p = Appearance::palette(dark);
        const QColor base = p.color(QPalette::Base);
        EXPECT_EQ(dark, p.color(QPalette::Window).lightness() <
                            p.color(QPalette::WindowText).lightness());
        EXPECT_GE(contrast(p.color(QPalette::WindowText), p.color(QPalette::Window)), 7);
        EXPECT_GE(contrast(p.color(QPalette::Text), base), 7);
        EXPECT_GE(contrast(p.color(QPalette::HighlightedText), p.color(QPalette::Highlight)), 4.5);
        EXPECT_GE(contrast(p.color(QPalette::Link), base), 4.5);
        EXPECT_GE(contrast(p.color(QPalette::PlaceholderText), base), 4.5);
        // Disabled text only needs to be found.
        EXPECT_GE(contrast(p.color(QPalette::Disabled, QPalette::Text), p.color(QPalette::Window)),
                  3);
    }
}

} // namespace
