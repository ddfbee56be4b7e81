#include "keyd/DeviceSet.h"

#include "FedInput.h"

#include <gtest/gtest.h>

using namespace keyd;
using fed::Hardware;
using fed::Triple;
using fed::triples;

namespace {

const DeviceCaps kKeyboard{"keyboard", true, true, false};

class KeydDevices : public ::testing::Test {
protected:
    Hardware& hardware(const std::string& node, DeviceCaps caps)
    {
        Hardware& hw = backend.devices[node];
        hw.caps = std::move(caps);
        hw.plugged = true;
        return hw;
    }
    Hardware& plug(const std::string& node, DeviceCaps caps)
    {
        Hardware& hw = hardware(node, std::move(caps));
        set.add(DeviceEvent{DeviceEvent::Kind::added, node, "/sys" + node});
        return hw;
    }
    Hardware& keyboard(const std::string& node) { return plug(node, kKeyboard); }
    void read(const std::string& node, bool hungUp = false)
    {
        set.service("/sys" + node, hungUp, armed, out);
    }

    fed::Backend backend;
    DeviceSet set{backend};
    bool armed = false;
    RouteOutput out;
};

TEST_F(KeydDevices, grabsAKeyboardOnlyOnceNoKeyIsDownAndPassesItsLedRequests)
{
    hardware("/dev/input/event1", kKeyboard).down.set(KEY_A); // held before the service looked
    Hardware& kbd = keyboard("/dev/input/event1");
    EXPECT_TRUE(kbd.cloned);
    EXPECT_FALSE(kbd.grabbed);
    EXPECT_EQ(set.grabbedCount(), 0);

    kbd.key(KEY_B, 1); // the desktop reads these from the device itself
    kbd.key(KEY_B, 0);
    read("/dev/input/event1");
    EXPECT_FALSE(kbd.grabbed) << "grabbed while a key was held";
    kbd.key(KEY_A, 0);
    read("/dev/input/event1");
    EXPECT_TRUE(kbd.grabbed);
    EXPECT_EQ(set.grabbedCount(), 1);
    EXPECT_TRUE(kbd.cloneFrames.empty()) << "the clone repeated what the desktop already had";

    // The desktop's LED requests to the clone reach the keyboard; nothing else does.
    kbd.toClone = {fed::event(EV_LED, LED_CAPSL, 1), fed::event(EV_KEY, KEY_A, 1)};
    read("/dev/input/event1");
    EXPECT_EQ(triples(kbd.requests), (std::vector<Triple>{{EV_LED, LED_CAPSL, 1}}));
}

TEST_F(KeydDevices, droppedEventsAreResyncedIntoTheCloneAndTheArmedPress)
{
    Hardware& kbd = keyboard("/dev/input/event1");
    armed = true;
    kbd.queue.emplace_back(fed::event(EV_KEY, KEY_C, 1), false); // a frame left open
    kbd.down.set(KEY_C);
    read("/dev/input/event1");
    kbd.overflow({{KEY_B, 1}, {KEY_VOLUMEUP, 1}});
    read("/dev/input/event1");
    EXPECT_EQ(triples(kbd.cloneFrames), (std::vector<Triple>{{EV_KEY, KEY_C, 1},
                                                             {EV_SYN, SYN_REPORT, 0},
                                                             {EV_KEY, KEY_B, 1},
                                                             {EV_SYN, SYN_REPORT, 0}}));
    // The resynced volume key-down is a new press, decided by the arming: swallowed.
    EXPECT_EQ(out.reports, (std::vector<KeyReport>{{MediaKey::soundUp, false, false}}));
}

TEST_F(KeydDevices, keyboardsComeAndGoAndAHungUpOneStillThereIsRetried)
{
    Hardware& first = keyboard("/dev/input/event1");
    Hardware& second = keyboard("/dev/input/event2");
    ASSERT_EQ(set.grabbedCount(), 2);

    second.plugged = false; // unplugged: it hangs up, and udev says so later
    read("/dev/input/event2", true);
    EXPECT_EQ(set.grabbedCount(), 1);
    EXPECT_FALSE(second.cloned) << "the clone outlived its keyboard";
    set.remove("/sys/dev/input/event2");
    EXPECT_FALSE(set.retryAt());

    first.failRead = true; // still there but broken: dropped, then looked for again
    read("/dev/input/event1");
    EXPECT_EQ(set.grabbedCount(), 0);
    EXPECT_TRUE(set.retryAt());
    first.failRead = false;
    set.retryStarted();
    keyboard("/dev/input/event1");
    keyboard("/dev/input/event2");
    EXPECT_EQ(set.grabbedCount(), 2);

    hardware("/dev/input/event9", kKeyboard);
    set.add(DeviceEvent{DeviceEvent::Kind::added, "/dev/input/event9",
                        "/sys/devices/virtual/input/clone/event9"}); // its own clone
    set.add(DeviceEvent{DeviceEvent::Kind::added, "/dev/input/event8", "/sys/event8"});
    EXPECT_EQ(set.size(), 2u);
    EXPECT_TRUE(set.retryAt()) << "a node that would not open is looked for again";
}

TEST_F(KeydDevices, shiftOnAnotherKeyboardMakesTheStepFine)
{
    Hardware& keys = plug("/dev/input/event1", {"consumer control", true, false, false});
    Hardware& letters = plug("/dev/input/event2", {"letters", false, true, false});
    armed = true;
    letters.down.set(KEY_RIGHTSHIFT);
    keys.key(KEY_VOLUMEUP, 1);
    keys.key(KEY_VOLUMEUP, 0);
    read("/dev/input/event1");
    letters.down.reset(KEY_RIGHTSHIFT);
    keys.key(KEY_VOLUMEDOWN, 1);
    read("/dev/input/event1");
    EXPECT_EQ(out.reports, (std::vector<KeyReport>{{MediaKey::soundUp, true, false},
                                                   {MediaKey::soundDown, false, false}}));
    EXPECT_FALSE(letters.grabbed) << "the keyboard without volume keys is the desktop's";
    EXPECT_EQ(set.grabbedCount(), 1);
}

TEST_F(KeydDevices, pointersAreReadOnlyWhileButtonsAreWantedAndNeverGrabbed)
{
    const DeviceCaps mouse{"mouse", false, false, true};
    plug("/dev/input/event3", mouse);
    EXPECT_EQ(set.size(), 0u);

    ASSERT_TRUE(set.wantPointers(true)) << "the pointers must be looked for";
    Hardware& hw = plug("/dev/input/event3", mouse);
    hw.key(BTN_RIGHT, 1);
    hw.key(BTN_RIGHT, 0);
    read("/dev/input/event3");
    EXPECT_EQ(out.buttons, (std::vector<PointerButton>{{BTN_RIGHT}}));
    EXPECT_FALSE(hw.grabbed);
    EXPECT_EQ(set.grabbedCount(), 0);

    EXPECT_FALSE(set.wantPointers(false));
    EXPECT_EQ(set.size(), 0u);
}

} // namespace
