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
        const auto color = [&p](QPalette::ColorRole role,
                                QPalette::ColorGroup group = QPalette::Active) {
            return p.color(group, role);
        };
        EXPECT_EQ(dark,
                  color(QPalette::Window).lightness() < color(QPalette::WindowText).lightness());
        EXPECT_GE(contrast(color(QPalette::WindowText), color(QPalette::Window)), 7);
        EXPECT_GE(contrast(color(QPalette::Text), color(QPalette::Base)), 7);
        EXPECT_GE(contrast(color(QPalette::ButtonText), color(QPalette::Button)), 7);
        EXPECT_GE(contrast(color(QPalette::ToolTipText), color(QPalette::ToolTipBase)), 7);
        EXPECT_GE(contrast(color(QPalette::HighlightedText), color(QPalette::Highlight)), 4.5);
        EXPECT_GE(contrast(color(QPalette::Link), color(QPalette::Base)), 4.5);
        EXPECT_GE(contrast(color(QPalette::LinkVisited), color(QPalette::Base)), 4.5);
        EXPECT_GE(contrast(color(QPalette::PlaceholderText), color(QPalette::Base)), 4.5);
        // Disabled text only needs to be found, and must not pass for enabled text.
        const QColor disabled = color(QPalette::Text, QPalette::Disabled);
        EXPECT_GE(contrast(disabled, color(QPalette::Window)), 3);
        EXPECT_LT(contrast(disabled, color(QPalette::Window)),
                  contrast(color(QPalette::Text), color(QPalette::Window)) / 2);
    }
}

} // namespace
