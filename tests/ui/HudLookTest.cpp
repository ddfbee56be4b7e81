#include "ui/HudLook.h"

#include <gtest/gtest.h>

namespace {

// Levels 0, 20 ... 100 are measured on screen.
TEST(HudLook, FillWidthHasAFloorOfTheBarHeightAndCapsAtTheTrack)
{
    EXPECT_EQ(HudLook::fillWidth(1), 6);
    EXPECT_EQ(HudLook::fillWidth(3), 6);
    EXPECT_NEAR(HudLook::fillWidth(4), 6.64, 1e-9);
    EXPECT_EQ(HudLook::fillWidth(250), 166);
}

// The shades of each state are checked on screen; which picture a state shows, here.
TEST(HudLook, EachStateHasItsSymbolAndUnreachableWinsOverMuted)
{
    EXPECT_EQ(HudLook::symbolName({40, false, false, {}}), "speaker.wave.3.fill");
    EXPECT_EQ(HudLook::symbolName({40, true, false, {}}), "speaker.slash.fill");
    EXPECT_EQ(HudLook::symbolName({40, true, true, {}}), "speaker.badge.exclamationmark.fill");
}

} // namespace
