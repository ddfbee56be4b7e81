// The key mirror: how one key-down moves the application's own copy of the speaker level.
#include "app/VolumeMirror.h"

#include <gtest/gtest.h>

namespace {

using Key = EventTap::MediaKey;

VolumeMirror at(int volume, bool muted = false)
{
    return VolumeMirror{volume, muted};
}

VolumeMirror pressed(VolumeMirror mirror, Key key, bool fine = false, bool isRepeat = false)
{
    mirror.press(key, fine, isRepeat);
    return mirror;
}

TEST(VolumeMirror, StepsByTwoOrByOneWithShiftWithinBothEnds)
{
    EXPECT_EQ(pressed(at(50), Key::soundUp), at(52));
    EXPECT_EQ(pressed(at(50), Key::soundDown, true), at(49));
    EXPECT_EQ(pressed(at(99), Key::soundUp), at(100));
    EXPECT_EQ(pressed(at(1), Key::soundDown), at(0));
}

TEST(VolumeMirror, RaisingUnmutesLoweringDoesNot)
{
    EXPECT_EQ(pressed(at(30, true), Key::soundDown), at(28, true));
    // At the top the press still unmutes, though the level cannot rise.
    EXPECT_EQ(pressed(at(100, true), Key::soundUp), at(100, false));
}

TEST(VolumeMirror, AHeldMuteTogglesOnceAHeldVolumeKeyRamps)
{
    VolumeMirror mirror = at(40);
    EXPECT_TRUE(mirror.press(Key::mute, false, false));
    EXPECT_FALSE(mirror.press(Key::mute, false, true));
    EXPECT_EQ(mirror, at(40, true));
    EXPECT_TRUE(mirror.press(Key::soundDown, false, true));
    EXPECT_EQ(mirror, at(38, true));
}

} // namespace
