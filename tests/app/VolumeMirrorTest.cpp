// The key mirror at its edges; the ordinary steps, unmuting by raising and held keys are shown
// by the end-to-end test.
#include "app/VolumeMirror.h"

#include <gtest/gtest.h>

namespace {

using Key = EventTap::MediaKey;

VolumeMirror pressed(VolumeMirror mirror, Key key)
{
    mirror.press(key, false, false);
    return mirror;
}

TEST(VolumeMirror, StopsAtBothEndsAndOnlyRaisingUnmutes)
{
    EXPECT_EQ(pressed({99, false}, Key::soundUp), (VolumeMirror{100, false}));
    EXPECT_EQ(pressed({1, false}, Key::soundDown), (VolumeMirror{0, false}));
    EXPECT_EQ(pressed({30, true}, Key::soundDown), (VolumeMirror{28, true}));
    // At the top the press still unmutes, though the level cannot rise.
    EXPECT_EQ(pressed({100, true}, Key::soundUp), (VolumeMirror{100, false}));
}

} // namespace
