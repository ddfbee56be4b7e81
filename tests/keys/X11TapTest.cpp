#include "TapRecorder.h"
#include "X11Session.h"
#include "common/LogWatch.h"
#include "common/Wait.h"
#include "keys/EventTap.h"

#include <gtest/gtest.h>

using testing_support::spinUntil;
using x11_session::FocusedWindow;
using x11_session::xdotool;
using Key = TapRecorder::Key;
using MediaKey = EventTap::MediaKey;

namespace {

class X11TapTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        ASSERT_TRUE(window.showFocused());
        recorder.armedAnswer = true;
        tap = EventTap::create(recorder.callbacks(),
                               EventTap::Options{QStringLiteral("/nonexistent")});
        ASSERT_EQ(tap->backendName(), QStringLiteral("X11"));
    }

    int windowSaw(int qtKey) const { return window.presses(qtKey) + window.releases(qtKey); }

    FocusedWindow window;
    TapRecorder recorder;
    std::unique_ptr<EventTap> tap;
    LogWatch log;
};

TEST_F(X11TapTest, armedKeysAreReportedOnceEachAndOnlyShiftChangesThem)
{
    ASSERT_TRUE(tap->install());
    EXPECT_EQ(recorder.lastHealth(), std::pair(true, true));
    EXPECT_EQ(log.count(QStringLiteral("Volume keys now control the Sonos")), 1);

    ASSERT_TRUE(xdotool(QStringLiteral(
        "key shift+XF86AudioRaiseVolume ctrl+XF86AudioLowerVolume alt+XF86AudioMute")));
    // With Caps Lock and Num Lock on, the keys are still ours.
    ASSERT_TRUE(xdotool(QStringLiteral("key Caps_Lock Num_Lock XF86AudioRaiseVolume "
                                       "shift+XF86AudioLowerVolume Caps_Lock Num_Lock")));
    ASSERT_TRUE(window.settle());

    const std::vector<Key> expected{{MediaKey::soundUp, true, false},
                                    {MediaKey::soundDown, false, false},
                                    {MediaKey::mute, false, false},
                                    {MediaKey::soundUp, false, false},
                                    {MediaKey::soundDown, true, false}};
    EXPECT_EQ(recorder.keys, expected);
    EXPECT_EQ(windowSaw(Qt::Key_VolumeUp) + windowSaw(Qt::Key_VolumeDown) +
                  windowSaw(Qt::Key_VolumeMute),
              0);
}

TEST_F(X11TapTest, aHeldKeyRepeatsAndItsReleaseFollowsItsFirstPress)
{
    ASSERT_TRUE(tap->install());

    // Held longer than the auto-repeat delay, the key repeats.
    ASSERT_TRUE(xdotool(QStringLiteral("keydown XF86AudioLowerVolume sleep 0.9 "
                                       "keyup XF86AudioLowerVolume key XF86AudioLowerVolume")));
    ASSERT_TRUE(window.settle());
    ASSERT_GE(recorder.keys.size(), 3u);
    EXPECT_EQ(recorder.keys.front(), (Key{MediaKey::soundDown, false, false}));
    for (size_t i = 1; i + 1 < recorder.keys.size(); ++i)
        EXPECT_EQ(recorder.keys[i], (Key{MediaKey::soundDown, false, true})) << i;
    EXPECT_EQ(recorder.keys.back(), (Key{MediaKey::soundDown, false, false}));
    EXPECT_EQ(windowSaw(Qt::Key_VolumeDown), 0);

    // A key that went to the window stays with it until released, even if armed meanwhile.
    recorder.keys.clear();
    recorder.armedAnswer = false;
    ASSERT_TRUE(xdotool(QStringLiteral("keydown XF86AudioRaiseVolume")));
    ASSERT_TRUE(spinUntil([&] { return window.presses(Qt::Key_VolumeUp) == 1; }));
    recorder.armedAnswer = true;
    ASSERT_TRUE(spinUntil([&] { return window.presses(Qt::Key_VolumeUp) >= 3; }));
    ASSERT_TRUE(xdotool(QStringLiteral("keyup XF86AudioRaiseVolume")));
    ASSERT_TRUE(spinUntil([&] { return window.releases(Qt::Key_VolumeUp) >= 1; }));
    ASSERT_TRUE(window.settle());
    EXPECT_TRUE(recorder.keys.empty());

    // Released, the next press is decided afresh.
    const int pressesBefore = window.presses(Qt::Key_VolumeUp);
    ASSERT_TRUE(xdotool(QStringLiteral("key XF86AudioRaiseVolume")));
    ASSERT_TRUE(window.settle());
    EXPECT_EQ(recorder.keys, (std::vector<Key>{{MediaKey::soundUp, false, false}}));
    EXPECT_EQ(window.presses(Qt::Key_VolumeUp), pressesBefore);
}

TEST_F(X11TapTest, aKeyGrabbedByAnotherProgramLeavesTheTapInactiveUntilItIsFree)
{
    auto desktop = x11_session::grabKeyElsewhere("XF86AudioMute");
    ASSERT_TRUE(desktop);

    EXPECT_FALSE(tap->install());
    EXPECT_EQ(recorder.lastHealth(), std::pair(true, false));
    tap->check();
    tap->check();
    EXPECT_EQ(recorder.lastHealth(), std::pair(true, false));
    EXPECT_EQ(log.count(QStringLiteral(
                  "volume keys are grabbed by another program — event tap inactive")),
              1);

    // None of the keys is held by the tap meanwhile, not even the free ones.
    ASSERT_TRUE(xdotool(QStringLiteral("key XF86AudioRaiseVolume")));
    ASSERT_TRUE(spinUntil([&] { return window.releases(Qt::Key_VolumeUp) == 1; }));
    EXPECT_TRUE(recorder.keys.empty());

    desktop.reset();
    tap->check();
    EXPECT_EQ(recorder.lastHealth(), std::pair(true, true));
    ASSERT_TRUE(xdotool(QStringLiteral("key XF86AudioMute")));
    ASSERT_TRUE(window.settle());
    EXPECT_EQ(recorder.keys, (std::vector<Key>{{MediaKey::mute, false, false}}));
}

TEST_F(X11TapTest, theGrabFollowsTheVolumeKeysToTheirNewKeyCodesUntilTeardown)
{
    ASSERT_TRUE(tap->install());
    const auto moved = x11_session::moveKeysym("XF86AudioRaiseVolume", 200);
    ASSERT_TRUE(moved);
    ASSERT_TRUE(window.settle());

    ASSERT_TRUE(xdotool(QStringLiteral("key XF86AudioRaiseVolume")));
    ASSERT_TRUE(window.settle());
    EXPECT_EQ(recorder.keys, (std::vector<Key>{{MediaKey::soundUp, false, false}}));
    EXPECT_EQ(windowSaw(Qt::Key_VolumeUp), 0);
    EXPECT_EQ(recorder.lastHealth(), std::pair(true, true));

    // Teardown gives the keys back.
    tap->teardown();
    EXPECT_EQ(recorder.lastHealth(), std::pair(true, false));
    ASSERT_TRUE(xdotool(QStringLiteral("key XF86AudioRaiseVolume")));
    ASSERT_TRUE(spinUntil([&] { return window.releases(Qt::Key_VolumeUp) == 1; }));
    EXPECT_EQ(recorder.keys.size(), 1u);
}

TEST(X11TapChoice, aWaylandSessionGetsNoGrabThroughXWayland)
{
    qputenv("WAYLAND_DISPLAY", "wayland-0");
    const auto tap = EventTap::create({}, EventTap::Options{QStringLiteral("/nonexistent")});
    qunsetenv("WAYLAND_DISPLAY");
    EXPECT_EQ(tap->backendName(), QStringLiteral("none"));
}

} // namespace
