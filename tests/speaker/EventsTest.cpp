// The speaker followed through its event messages: the controller and its event subscriptions
// against emulated players over real HTTP, in a private network namespace. The controller
// checks the speaker only every five seconds here, so a change seen sooner came by event.
#include "common/LogWatch.h"
#include "common/QtPrinters.h"
#include "common/Wait.h"
#include "discovery/Coordinator.h"
#include "emulator/Emulator.h"
#include "speaker/RetrySchedule.h"
#include "speaker/SpeakerController.h"
#include "speaker/SpeakerEvents.h"

#include <QProcess>

#include <gtest/gtest.h>

#include <memory>

using namespace std::chrono_literals;
using testing_support::spinFor;
using testing_support::spinUntil;

namespace {

const QString livingRoom = QStringLiteral("127.0.0.11");
const QString kitchen = QStringLiteral("127.0.0.12");
const QString diningRoom = QStringLiteral("127.0.0.13");
const QString office = QStringLiteral("127.0.0.14");

const QByteArray household = R"({
  "household": "Sonos_Speaker_Events_Test",
  "players": [
    {"host": "127.0.0.11", "uid": "RINCON_000E58D0A1B101400", "room": "Living Room",
     "model": "Sonos Arc"},
    {"host": "127.0.0.12", "uid": "RINCON_000E58D0A1B201400", "room": "Kitchen",
     "model": "Sonos One"},
    {"host": "127.0.0.13", "uid": "RINCON_000E58D0A1B301400", "room": "Dining Room",
     "model": "Sonos One"},
    {"host": "127.0.0.14", "uid": "RINCON_000E58D0A1B401400", "room": "Office",
     "model": "Sonos Era 100"}
  ],
  "groups": [
    {"coordinator": "RINCON_000E58D0A1B201400", "members": ["RINCON_000E58D0A1B301400"]}
  ]
})";

// Runs `ip` in the test's namespace; answers whether it succeeded.
bool ip(const QStringList& arguments)
{
    return QProcess::execute(QStringLiteral("ip"), arguments) == 0;
}

// A firewall in the way of the callback: the living room's new connections (from its
// ephemeral ports) are refused, while its answers (from port 1400) still come back.
class BlockedCallback {
public:
    BlockedCallback()
    {
        m_up = ip({"rule", "add", "pref", "10", "from", livingRoom, "ipproto", "tcp", "sport",
                   "32768-60999", "prohibit"}) &&
               ip({"rule", "del", "pref", "0"}) &&
               ip({"rule", "add", "pref", "100", "lookup", "local"});
    }
    ~BlockedCallback()
    {
        ip({"rule", "del", "pref", "10"});
        ip({"rule", "add", "pref", "0", "lookup", "local"});
        ip({"rule", "del", "pref", "100"});
    }
    bool isUp() const { return m_up; }

private:
    bool m_up = false;
};

} // namespace

class EventsTest : public ::testing::Test {
protected:
    static void SetUpTestSuite()
    {
        players = std::make_unique<emulator::EmulatorThread>();
        const std::optional<QString> failure = players->startJson(household, 1400, true);
        ASSERT_EQ(failure, std::nullopt) << failure->toStdString();
    }
    static void TearDownTestSuite() { players.reset(); }

    void SetUp() override
    {
        ASSERT_TRUE(players);
        (*players)->clearFaults();
        for (const QString& host : {livingRoom, kitchen, diningRoom, office}) {
            (*players)->setVolume(host, 20);
            (*players)->setMuted(host, false);
        }
        (*players)->clearRequests();
        discovery = std::make_unique<SonosDiscovery::Coordinator>();
    }

    void TearDown() override
    {
        events.reset();
        speaker.reset();
        discovery.reset();
    }

    // Connected to `name` at `host`, checked every `interval`, with its events followed.
    SpeakerController& connected(const QString& name, const QString& host,
                                 std::chrono::milliseconds interval = 5s)
    {
        RetrySchedule schedule;
        schedule.healthInterval = interval;
        schedule.sweepSeconds = 0.3;
        speaker = std::make_unique<SpeakerController>(name, schedule);
        speaker->setDiscovery(*discovery);
        speaker->setKnownHost(host);
        QObject::connect(speaker.get(), &SpeakerController::changed,
                         [this] { seen.append(speaker->snapshot().volume); });
        events = std::make_unique<SpeakerEvents>(*speaker);
        speaker->startSupervision();
        EXPECT_TRUE(spinUntil([&] { return speaker->snapshot().connected; }));
        return *speaker;
    }

    static QStringList subscriptions(const QString& host)
    {
        QStringList made;
        for (const emulator::Request& request : (*players)->requests(host))
            if (request.method.endsWith("SUBSCRIBE") && request.header("SID").isEmpty())
                made << QString::fromLatin1(request.method + ' ' + request.path);
        made.sort();
        return made;
    }
    static int count(const QString& host, const QByteArray& method)
    {
        int n = 0;
        for (const emulator::Request& request : (*players)->requests(host))
            n += request.method == method;
        return n;
    }

    static inline std::unique_ptr<emulator::EmulatorThread> players;
    std::unique_ptr<SonosDiscovery::Coordinator> discovery;
    std::unique_ptr<SpeakerController> speaker;
    std::unique_ptr<SpeakerEvents> events;
    QList<int> seen;
};

TEST_F(EventsTest, AChangeMadeElsewhereReachesTheControllerAtOnce)
{
    SpeakerController& controller = connected("Living Room", livingRoom);
    ASSERT_TRUE(spinUntil([&] { return events->isFollowing(); }));
    EXPECT_EQ(subscriptions(livingRoom),
              (QStringList{"SUBSCRIBE /MediaRenderer/AVTransport/Event",
                           "SUBSCRIBE /MediaRenderer/RenderingControl/Event",
                           "SUBSCRIBE /ZoneGroupTopology/Event"}));
    (*players)->clearRequests();
    const LogWatch log;
    (*players)->setVolume(livingRoom, 23);
    (*players)->setMuted(livingRoom, true);
    ASSERT_TRUE(spinUntil([&] { return controller.snapshot().muted; }, 2s));
    EXPECT_EQ(controller.snapshot().volume, 23);
    EXPECT_EQ(count(livingRoom, "POST"), 0) << "the change came by event, not by asking";
    EXPECT_TRUE(log.lines().contains("speaker moved externally to 23 (muted)"));
}

TEST_F(EventsTest, WhileGroupedTheGroupsLevelsComeFromItsCoordinator)
{
    SpeakerController& controller = connected("Dining Room", diningRoom);
    ASSERT_TRUE(spinUntil([&] { return controller.isGrouped(); }));
    ASSERT_TRUE(spinUntil([&] {
        return subscriptions(kitchen) ==
               QStringList{"SUBSCRIBE /MediaRenderer/GroupRenderingControl/Event"};
    }));
    ASSERT_TRUE(spinUntil([&] { return events->isFollowing(); }));
    (*players)->setVolume(kitchen, 44);
    (*players)->setVolume(diningRoom, 44);
    EXPECT_TRUE(spinUntil([&] { return controller.snapshot().volume == 44; }, 2s));
}

// A key press on its way outranks the speaker's report of a change made before it arrived.
TEST_F(EventsTest, ALocalChangeOnItsWayOutranksAChangeFromElsewhere)
{
    SpeakerController& controller = connected("Living Room", livingRoom);
    ASSERT_TRUE(spinUntil([&] { return events->isFollowing(); }));
    (*players)->setFault(livingRoom, {.kind = emulator::Fault::Kind::Delay,
                                      .delayMs = 400,
                                      .only = QStringLiteral("SetVolume")});
    seen.clear();
    controller.set(60);
    (*players)->setVolume(livingRoom, 10);
    ASSERT_TRUE(spinUntil([&] { return (*players)->volume(livingRoom) == 60; }));
    spinFor(300ms);
    EXPECT_EQ(controller.snapshot().volume, 60);
    EXPECT_FALSE(seen.contains(10));
}

TEST_F(EventsTest, SubscribesAfreshAfterANetworkChangeAndLetsGoOnASwitch)
{
    SpeakerController& controller = connected("Living Room", livingRoom);
    ASSERT_TRUE(spinUntil([&] { return events->isFollowing(); }));
    (*players)->clearRequests();
    events->resubscribe(QStringLiteral("network changed"));
    ASSERT_TRUE(spinUntil([&] { return events->isFollowing(); }));
    EXPECT_EQ(subscriptions(livingRoom).size(), 3);
    EXPECT_TRUE(spinUntil([&] { return count(livingRoom, "UNSUBSCRIBE") == 3; }));
    (*players)->setVolume(livingRoom, 27);
    EXPECT_TRUE(spinUntil([&] { return controller.snapshot().volume == 27; }, 2s));

    (*players)->clearRequests();
    controller.switchTo(QStringLiteral("Office"));
    EXPECT_TRUE(spinUntil([&] { return count(livingRoom, "UNSUBSCRIBE") == 3; }));
    EXPECT_TRUE(spinUntil([&] { return subscriptions(office).size() == 3; }));
}

// Without events everything goes on as before: the regular check follows the speaker, and
// the log says once why it is the only way.
TEST_F(EventsTest, ABlockedCallbackFallsBackQuietly)
{
    const BlockedCallback firewall;
    ASSERT_TRUE(firewall.isUp());
    const LogWatch log;
    SpeakerController& controller = connected("Living Room", livingRoom, 500ms);
    const QString told = "No events from Living Room within 3 s; following it by the regular "
                         "check only";
    ASSERT_TRUE(spinUntil([&] { return log.count(told) == 1; }, SpeakerEvents::initialWait + 2s));
    EXPECT_TRUE(spinUntil([&] { return count(livingRoom, "UNSUBSCRIBE") == 3; }));
    EXPECT_FALSE(events->isFollowing());
    (*players)->setVolume(livingRoom, 33);
    EXPECT_TRUE(spinUntil([&] { return controller.snapshot().volume == 33; }, 3s));

    events->resubscribe(QStringLiteral("woke from sleep"));
    spinFor(SpeakerEvents::initialWait + 500ms);
    EXPECT_EQ(log.count(told), 1);
}
