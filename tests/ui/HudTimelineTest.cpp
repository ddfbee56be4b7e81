#include "ui/HudTimeline.h"

#include <gtest/gtest.h>

namespace {

using State = HudTimeline::State;
constexpr double frame = HudTimeline::frameInterval;

TEST(HudTimeline, AppearsAtOnceHoldsForDefaultOrGivenTimeAndAppearsAgainDuringTheFade)
{
    HudTimeline timeline;
    EXPECT_TRUE(timeline.show(10.0)) << "a hidden overlay is placed before it appears";
    EXPECT_EQ(timeline.state(), State::Holding);
    EXPECT_EQ(timeline.alpha(), 1);
    ASSERT_TRUE(timeline.nextWake());
    EXPECT_DOUBLE_EQ(*timeline.nextWake(), 11.2);

    EXPECT_FALSE(timeline.show(10.5, 3.0)) << "a visible overlay is not moved";
    EXPECT_DOUBLE_EQ(*timeline.nextWake(), 13.5);
    timeline.advance(13.49);
    EXPECT_EQ(timeline.state(), State::Holding);
    timeline.advance(13.5);
    EXPECT_EQ(timeline.state(), State::Fading);

    // A press during the fade restores full opacity and asks for placement again.
    timeline.advance(13.5 + 5 * frame + 1e-9);
    ASSERT_LT(timeline.alpha(), 1);
    EXPECT_TRUE(timeline.show(13.6));
    EXPECT_EQ(timeline.state(), State::Holding);
    EXPECT_EQ(timeline.alpha(), 1);
    EXPECT_DOUBLE_EQ(*timeline.nextWake(), 14.8) << "no leftover fade frames run during the hold";
}

TEST(HudTimeline, FadesIn15FramesFromOneIntervalAfterTheHold)
{
    HudTimeline timeline;
    timeline.show(0);
    timeline.advance(1.2);
    ASSERT_EQ(timeline.state(), State::Fading);
    EXPECT_EQ(timeline.alpha(), 1) << "the first frame comes one interval after the hold";
    for (int k = 1; k <= 14; ++k) {
        timeline.advance(1.2 + k * frame + 1e-9);
        EXPECT_NEAR(timeline.alpha(), 1 - k / 15.0, 1e-9) << "frame " << k;
        EXPECT_EQ(timeline.state(), State::Fading) << "frame " << k;
    }
    timeline.advance(1.2 + 15 * frame + 1e-9);
    EXPECT_EQ(timeline.state(), State::Hidden);
    EXPECT_EQ(timeline.alpha(), 0);
    EXPECT_FALSE(timeline.nextWake());
}

TEST(HudTimeline, WakesAreJudgedByTheClockNotByTheirCount)
{
    HudTimeline timeline;
    timeline.show(0);
    timeline.show(1.0);    // moves the deadline to 2.2
    timeline.advance(1.2); // the first press's deadline, now stale
    EXPECT_EQ(timeline.state(), State::Holding);
    EXPECT_DOUBLE_EQ(*timeline.nextWake(), 2.2);

    timeline.advance(2.2 + 0.1 + 1e-9); // a late timer catches up on missed frames
    EXPECT_NEAR(timeline.alpha(), 1 - 6 / 15.0, 1e-9);
    timeline.advance(6);
    EXPECT_EQ(timeline.state(), State::Hidden);
}

TEST(HudTimeline, DismissFadesAHoldingOverlayAtOnceAndLeavesOthersAlone)
{
    HudTimeline hidden;
    hidden.dismiss(1.0);
    EXPECT_EQ(hidden.state(), State::Hidden);
    EXPECT_FALSE(hidden.nextWake());

    HudTimeline holding;
    holding.show(0);
    holding.dismiss(0.5);
    EXPECT_EQ(holding.state(), State::Fading);
    EXPECT_NEAR(*holding.nextWake(), 0.5 + frame, 1e-9);

    HudTimeline fading;
    fading.show(0);
    fading.advance(1.2 + 3 * frame + 1e-9);
    const double before = fading.alpha();
    fading.dismiss(1.2 + 3 * frame + 2e-9);
    EXPECT_EQ(fading.alpha(), before);
    EXPECT_NEAR(*fading.nextWake(), 1.2 + 4 * frame, 1e-9) << "the running fade keeps its pace";
}

} // namespace
