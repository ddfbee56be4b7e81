#include "keyd/KeyRouter.h"

#include "FedInput.h"

#include <gtest/gtest.h>

using namespace keyd;
using fed::keyFrames;
using fed::triples;

namespace {

input_event key(unsigned short code, int value)
{
    return fed::event(EV_KEY, code, value);
}

input_event syn()
{
    return fed::event(EV_SYN, SYN_REPORT, 0);
}

// A grabbed device fed one frame at a time, with the arming of the moment.
struct Rig {
    KeyRouter router;
    bool armed = false;
    bool shift = false;
    bool wantsButtons = false;
    int shiftAsked = 0;
    std::vector<input_event> written;
    std::vector<KeyReport> reports;
    std::vector<PointerButton> buttons;

    Rig() { router.setGrabbed(true); }

    void feed(const std::vector<input_event>& frame)
    {
        RouteContext context{armed, wantsButtons, [this] {
                                 ++shiftAsked;
                                 return shift;
                             }};
        RouteOutput out;
        for (const input_event& e : frame)
            router.route(e, context, out);
        written.insert(written.end(), out.frame.begin(), out.frame.end());
        reports.insert(reports.end(), out.reports.begin(), out.reports.end());
        buttons.insert(buttons.end(), out.buttons.begin(), out.buttons.end());
    }
};

} // namespace

TEST(KeydRouter, everyPressFollowsTheDecisionTakenAtItsKeyDown)
{
    struct Scenario {
        const char* what;
        std::vector<std::pair<bool, std::vector<input_event>>> steps; // (armed, frames)
        std::vector<input_event> passed;
        std::vector<KeyReport> reports;
    };
    const input_event scan = fed::event(EV_MSC, MSC_SCAN, 7);
    const Scenario scenarios[] = {
        {"armed: the whole press vanishes, the scan codes beside it stay, key-downs are reported",
         {{true, keyFrames({{KEY_VOLUMEDOWN, 1},
                            {KEY_VOLUMEDOWN, 2},
                            {KEY_VOLUMEDOWN, 2},
                            {KEY_VOLUMEDOWN, 0}})},
          {true, {scan, key(KEY_MUTE, 1), syn(), scan, key(KEY_MUTE, 0), syn()}}},
         {scan, syn(), scan, syn()},
         {{MediaKey::soundDown, false, false},
          {MediaKey::soundDown, false, true},
          {MediaKey::soundDown, false, true},
          {MediaKey::mute, false, false}}},
        {"pressed disarmed, armed mid-press: the repeat and the release reach the desktop",
         {{false, keyFrames({{KEY_VOLUMEUP, 1}})},
          {true, keyFrames({{KEY_VOLUMEUP, 2}, {KEY_VOLUMEUP, 0}})}},
         keyFrames({{KEY_VOLUMEUP, 1}, {KEY_VOLUMEUP, 2}, {KEY_VOLUMEUP, 0}}),
         {}},
        {"pressed armed, disarmed mid-press (the client left): the rest stays swallowed, and the "
         "next press is decided afresh",
         {{true, keyFrames({{KEY_MUTE, 1}})},
          {false, keyFrames({{KEY_MUTE, 2}, {KEY_MUTE, 0}})},
          {false, keyFrames({{KEY_MUTE, 1}, {KEY_MUTE, 0}})}},
         keyFrames({{KEY_MUTE, 1}, {KEY_MUTE, 0}}),
         {{MediaKey::mute, false, false}}},
        // A resync after dropped events can repeat the key-down of a key already down.
        // Deciding it afresh would swallow the release of a press the desktop saw begin.
        {"a second key-down of a held key keeps the first decision",
         {{false, keyFrames({{KEY_VOLUMEUP, 1}})},
          {true, keyFrames({{KEY_VOLUMEUP, 1}, {KEY_VOLUMEUP, 0}})}},
         keyFrames({{KEY_VOLUMEUP, 1}, {KEY_VOLUMEUP, 1}, {KEY_VOLUMEUP, 0}}),
         {}},
        {"each volume key keeps its own decision",
         {{false, keyFrames({{KEY_VOLUMEUP, 1}})},
          {true, keyFrames({{KEY_VOLUMEDOWN, 1}})},
          {false, {key(KEY_VOLUMEUP, 0), key(KEY_VOLUMEDOWN, 0), syn()}}},
         keyFrames({{KEY_VOLUMEUP, 1}, {KEY_VOLUMEUP, 0}}),
         {{MediaKey::soundDown, false, false}}},
    };
    for (const Scenario& scenario : scenarios) {
        SCOPED_TRACE(scenario.what);
        Rig rig;
        for (const auto& [armed, frames] : scenario.steps) {
            rig.armed = armed;
            rig.feed(frames);
        }
        EXPECT_EQ(triples(rig.written), triples(scenario.passed));
        EXPECT_EQ(rig.reports, scenario.reports);
    }
}

TEST(KeydRouter, fineComesFromTheShiftAnswerOfTheMoment)
{
    Rig rig;
    rig.armed = true;
    rig.shift = true; // held on this or any other keyboard: the service asks them all
    rig.feed(keyFrames({{KEY_VOLUMEUP, 1}, {KEY_VOLUMEUP, 0}}));
    rig.shift = false;
    rig.feed(keyFrames({{KEY_VOLUMEUP, 1}}));
    rig.shift = true;
    rig.feed(keyFrames({{KEY_VOLUMEUP, 2}}));
    EXPECT_EQ(rig.reports, (std::vector<KeyReport>{{MediaKey::soundUp, true, false},
                                                   {MediaKey::soundUp, false, false},
                                                   {MediaKey::soundUp, true, true}}));
    EXPECT_EQ(rig.shiftAsked, 3) << "asked only for a swallowed key-down or repeat";
    // Shift itself is an ordinary key and passes.
    rig.written.clear();
    rig.feed(keyFrames({{KEY_LEFTSHIFT, 1}}));
    EXPECT_EQ(triples(rig.written).size(), 2u);
}

TEST(KeydRouter, neutralOnlyWhenEveryKeyIsUpAfterACompleteFrame)
{
    KeyRouter router;
    RouteContext context;
    RouteOutput out;
    const auto neutralAfter = [&](const std::vector<input_event>& events) {
        for (const input_event& e : events)
            router.route(e, context, out);
        return router.isNeutral();
    };
    EXPECT_TRUE(router.isNeutral());
    EXPECT_FALSE(neutralAfter(keyFrames({{KEY_A, 1}})));
    EXPECT_TRUE(neutralAfter(keyFrames({{KEY_A, 0}})));
    EXPECT_FALSE(neutralAfter({key(BTN_LEFT, 1)}));
    EXPECT_TRUE(neutralAfter({key(BTN_LEFT, 0)}));
    EXPECT_TRUE(out.frame.empty()) << "not grabbed: the desktop reads the device itself";

    router.setGrabbed(true);
    EXPECT_FALSE(neutralAfter({key(KEY_B, 1), key(KEY_B, 0)}))
        << "a frame still open is not a resting state";
    EXPECT_TRUE(neutralAfter({syn()}));
}

TEST(KeydRouter, pointerButtonPressesAreReportedOnlyWhenWanted)
{
    Rig rig;
    rig.feed(keyFrames({{BTN_LEFT, 1}, {BTN_LEFT, 0}}));
    EXPECT_TRUE(rig.buttons.empty());
    rig.wantsButtons = true;
    rig.feed(keyFrames({{BTN_RIGHT, 1}, {BTN_RIGHT, 0}, {KEY_A, 1}}));
    EXPECT_EQ(rig.buttons, (std::vector<PointerButton>{{BTN_RIGHT}}));
    EXPECT_EQ(triples(rig.written).size(), 10u) << "buttons still pass to the desktop";
}
