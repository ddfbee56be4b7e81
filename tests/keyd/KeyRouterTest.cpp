#include "keyd/KeyRouter.h"

#include "FedInput.h"

#include <gtest/gtest.h>

using namespace keyd;
using fed::Triple;
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

// Key events as they come out, each in a frame of its own.
std::vector<Triple> frames(std::initializer_list<std::pair<int, int>> keys)
{
    std::vector<Triple> out;
    for (auto [code, value] : keys) {
        out.emplace_back(EV_KEY, code, value);
        out.emplace_back(EV_SYN, SYN_REPORT, 0);
    }
    return out;
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

    void feed(std::vector<input_event> frame)
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
    struct Step {
        bool armed;
        std::vector<input_event> frame;
    };
    struct Scenario {
        const char* what;
        std::vector<Step> steps;
        std::vector<Triple> passed;
        std::vector<KeyReport> reports;
    };
    const auto tap = [](unsigned short code, int value) {
        return std::vector<input_event>{key(code, value), syn()};
    };
    const Triple report{EV_SYN, SYN_REPORT, 0};
    const Scenario scenarios[] = {
        {"armed: the whole press vanishes, the scan codes beside it stay, key-downs are reported",
         {{true, tap(KEY_VOLUMEDOWN, 1)},
          {true, tap(KEY_VOLUMEDOWN, 2)},
          {true, tap(KEY_VOLUMEDOWN, 2)},
          {true, tap(KEY_VOLUMEDOWN, 0)},
          {true, {fed::event(EV_MSC, MSC_SCAN, 7), key(KEY_MUTE, 1), syn()}},
          {true, {fed::event(EV_MSC, MSC_SCAN, 7), key(KEY_MUTE, 0), syn()}}},
         {{EV_MSC, MSC_SCAN, 7}, report, {EV_MSC, MSC_SCAN, 7}, report},
         {{MediaKey::soundDown, false, false},
          {MediaKey::soundDown, false, true},
          {MediaKey::soundDown, false, true},
          {MediaKey::mute, false, false}}},
        {"pressed disarmed, armed mid-press: the repeat and the release reach the desktop",
         {{false, tap(KEY_VOLUMEUP, 1)},
          {true, tap(KEY_VOLUMEUP, 2)},
          {true, tap(KEY_VOLUMEUP, 0)}},
         frames({{KEY_VOLUMEUP, 1}, {KEY_VOLUMEUP, 2}, {KEY_VOLUMEUP, 0}}),
         {}},
        {"pressed armed, disarmed mid-press (the client left): the rest stays swallowed, and the "
         "next press is decided afresh",
         {{true, tap(KEY_MUTE, 1)},
          {false, tap(KEY_MUTE, 2)},
          {false, tap(KEY_MUTE, 0)},
          {false, {key(KEY_MUTE, 1), syn(), key(KEY_MUTE, 0), syn()}}},
         frames({{KEY_MUTE, 1}, {KEY_MUTE, 0}}),
         {{MediaKey::mute, false, false}}},
        // A resync after dropped events can repeat the key-down of a key already down.
        // Deciding it afresh would swallow the release of a press the desktop saw begin.
        {"a second key-down of a held key keeps the first decision",
         {{false, tap(KEY_VOLUMEUP, 1)},
          {true, tap(KEY_VOLUMEUP, 1)},
          {true, tap(KEY_VOLUMEUP, 0)}},
         frames({{KEY_VOLUMEUP, 1}, {KEY_VOLUMEUP, 1}, {KEY_VOLUMEUP, 0}}),
         {}},
        {"each volume key keeps its own decision",
         {{false, tap(KEY_VOLUMEUP, 1)},
          {true, tap(KEY_VOLUMEDOWN, 1)},
          {false, {key(KEY_VOLUMEUP, 0), key(KEY_VOLUMEDOWN, 0), syn()}}},
         frames({{KEY_VOLUMEUP, 1}, {KEY_VOLUMEUP, 0}}),
         {{MediaKey::soundDown, false, false}}},
    };
    for (const Scenario& scenario : scenarios) {
        SCOPED_TRACE(scenario.what);
        Rig rig;
        for (const Step& step : scenario.steps) {
            rig.armed = step.armed;
            rig.feed(step.frame);
        }
        EXPECT_EQ(triples(rig.written), scenario.passed);
        EXPECT_EQ(rig.reports, scenario.reports);
    }
}

TEST(KeydRouter, fineComesFromTheShiftAnswerOfTheMoment)
{
    Rig rig;
    rig.armed = true;
    rig.shift = true; // held on this or any other keyboard: the service asks them all
    rig.feed({key(KEY_VOLUMEUP, 1), syn(), key(KEY_VOLUMEUP, 0), syn()});
    rig.shift = false;
    rig.feed({key(KEY_VOLUMEUP, 1), syn()});
    rig.shift = true;
    rig.feed({key(KEY_VOLUMEUP, 2), syn()});
    EXPECT_EQ(rig.reports, (std::vector<KeyReport>{{MediaKey::soundUp, true, false},
                                                   {MediaKey::soundUp, false, false},
                                                   {MediaKey::soundUp, true, true}}));
    EXPECT_EQ(rig.shiftAsked, 3) << "asked only for a swallowed key-down or repeat";
    // Shift itself is an ordinary key and passes.
    rig.written.clear();
    rig.feed({key(KEY_LEFTSHIFT, 1), syn()});
    EXPECT_EQ(triples(rig.written).size(), 2u);
}

TEST(KeydRouter, neutralOnlyWhenEveryKeyIsUpAfterACompleteFrame)
{
    KeyRouter router;
    RouteContext context;
    RouteOutput out;
    EXPECT_TRUE(router.isNeutral());
    router.route(key(KEY_A, 1), context, out);
    router.route(syn(), context, out);
    EXPECT_FALSE(router.isNeutral());
    router.route(key(KEY_A, 0), context, out);
    router.route(syn(), context, out);
    EXPECT_TRUE(router.isNeutral());
    router.route(key(BTN_LEFT, 1), context, out);
    EXPECT_FALSE(router.isNeutral());
    router.route(key(BTN_LEFT, 0), context, out);
    EXPECT_TRUE(router.isNeutral());
    // Not grabbed: the desktop reads the device itself, nothing is written.
    EXPECT_TRUE(out.frame.empty());

    router.setGrabbed(true);
    router.route(key(KEY_B, 1), context, out);
    router.route(key(KEY_B, 0), context, out);
    EXPECT_FALSE(router.isNeutral()) << "a frame still open is not a resting state";
    router.route(syn(), context, out);
    EXPECT_TRUE(router.isNeutral());
}

TEST(KeydRouter, pointerButtonPressesAreReportedOnlyWhenWanted)
{
    Rig rig;
    rig.feed({key(BTN_LEFT, 1), syn(), key(BTN_LEFT, 0), syn()});
    EXPECT_TRUE(rig.buttons.empty());
    rig.wantsButtons = true;
    rig.feed({key(BTN_RIGHT, 1), syn(), key(BTN_RIGHT, 0), syn(), key(KEY_A, 1), syn()});
    EXPECT_EQ(rig.buttons, (std::vector<PointerButton>{{BTN_RIGHT}}));
    EXPECT_EQ(triples(rig.written).size(), 10u) << "buttons still pass to the desktop";
}
