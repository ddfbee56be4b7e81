#include "ui/HudLook.h"

#include <gtest/gtest.h>

namespace {

TEST(HudLook, FillWidthHasAFloorOfTheBarHeightAndCapsAtTheTrack)
{
    EXPECT_EQ(HudLook::fillWidth(0), 0);
    EXPECT_EQ(HudLook::fillWidth(1), 6);
    EXPECT_EQ(HudLook::fillWidth(3), 6);
    EXPECT_NEAR(HudLook::fillWidth(4), 6.64, 1e-9);
    EXPECT_NEAR(HudLook::fillWidth(40), 66.4, 1e-9);
    EXPECT_EQ(HudLook::fillWidth(100), 166);
    EXPECT_EQ(HudLook::fillWidth(250), 166);
    EXPECT_EQ(HudLook::fillRect(40), QRectF(46, 16, 66.4, 6));
}

TEST(HudLook, StatesPickTheirSymbolAndShades)
{
    const QColor label(20, 20, 20);
    const HudReading normal{40, false, false, {}};
    const HudReading muted{40, true, false, {}};
    const HudReading unreachable{40, true, true, {}};

    EXPECT_EQ(HudLook::symbolName(normal), "speaker.wave.3.fill");
    EXPECT_EQ(HudLook::symbolName(muted), "speaker.slash.fill");
    EXPECT_EQ(HudLook::symbolName(unreachable), "speaker.badge.exclamationmark.fill");

    EXPECT_EQ(HudLook::fillColor(normal, label), label);
    EXPECT_NEAR(HudLook::fillColor(muted, label).alphaF(), 0.35, 0.002);
    EXPECT_NEAR(HudLook::fillColor(unreachable, label).alphaF(), HudLook::tertiaryAlpha, 0.002);
    EXPECT_EQ(HudLook::iconColor(muted, label), label);
    EXPECT_NEAR(HudLook::iconColor(unreachable, label).alphaF(), HudLook::secondaryAlpha, 0.002);
    EXPECT_EQ(HudLook::fillColor(muted, label).rgb(), label.rgb());

    EXPECT_GT(HudLook::trackColor(true, label).alphaF(), HudLook::trackColor(false, label).alphaF())
        << "Increase Contrast darkens the track";
}

} // namespace
