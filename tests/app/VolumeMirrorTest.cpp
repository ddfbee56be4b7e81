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

TEST(VolumeMirror, StartsAtFiftyUnmuted)
{
    EXPECT_EQ(VolumeMirror{}, at(50, false));
}

TEST(VolumeMirror, StepsByTwoOrByOneWithShift)
{
    EXPECT_EQ(pressed(at(50), Key::soundUp), at(52));
    EXPECT_EQ(pressed(at(50), Key::soundUp, true), at(51));
    EXPECT_EQ(pressed(at(50), Key::soundDown), at(48));
    EXPECT_EQ(pressed(at(50), Key::soundDown, true), at(49));
}

TEST(VolumeMirror, ClampsAtBothEnds)
{
    EXPECT_EQ(pressed(at(99), Key::soundUp), at(100));
    EXPECT_EQ(pressed(at(100), Key::soundUp), at(100));
    EXPECT_EQ(pressed(at(1), Key::soundDown), at(0));
    EXPECT_EQ(pressed(at(0), Key::soundDown), at(0));
    EXPECT_EQ(pressed(at(0), Key::soundDown, true), at(0));
}

TEST(VolumeMirror, RaisingUnmutesLoweringDoesNot)
{
    EXPECT_EQ(pressed(at(30, true), Key::soundUp), at(32, false));
    EXPECT_EQ(pressed(at(30, true), Key::soundDown), at(28, true));
    // At the top the press still unmutes, though the level cannot rise.
    EXPECT_EQ(pressed(at(100, true), Key::soundUp), at(100, false));
}

TEST(VolumeMirror, MuteTogglesAndAHeldMuteTogglesOnce)
{
    VolumeMirror mirror = at(40);
    EXPECT_TRUE(mirror.press(Key::mute, false, false));
    EXPECT_EQ(mirror, at(40, true));
    for (int repeat = 0; repeat < 5; ++repeat)
        EXPECT_FALSE(mirror.press(Key::mute, false, true));
    EXPECT_EQ(mirror, at(40, true));
    EXPECT_TRUE(mirror.press(Key::mute, true, false));
    EXPECT_EQ(mirror, at(40, false));
}

TEST(VolumeMirror, HeldVolumeKeysRampOneStepPerRepeat)
{
    VolumeMirror mirror = at(10);
    EXPECT_TRUE(mirror.press(Key::soundUp, false, false));
    for (int repeat = 0; repeat < 4; ++repeat)
        EXPECT_TRUE(mirror.press(Key::soundUp, false, true));
    EXPECT_EQ(mirror, at(20));
    for (int repeat = 0; repeat < 30; ++repeat)
        mirror.press(Key::soundDown, true, true);
    EXPECT_EQ(mirror, at(0));
}

} // namespace
