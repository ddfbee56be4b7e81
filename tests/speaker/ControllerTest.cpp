// The speaker controller against a household of emulated players over real SSDP and real
// HTTP, in a private network namespace. Its waits are scaled down fifty times, so the
// supervision checks the speaker every tenth of a second instead of every five.
#include "common/LogWatch.h"
#include "common/QtPrinters.h"
#include "common/Wait.h"
#include "discovery/Coordinator.h"
#include "discovery/ZoneScan.h"
#include "emulator/Emulator.h"
#include "speaker/RetrySchedule.h"
#include "speaker/SpeakerController.h"

#include <gtest/gtest.h>

#include <memory>

using namespace std::chrono_literals;
using emulator::Fault;
using testing_support::spinFor;
using testing_support::spinUntil;

namespace {

const QString livingRoom = QStringLiteral("127.0.0.11");
const QString kitchen = QStringLiteral("127.0.0.12");
const QString diningRoom = QStringLiteral("127.0.0.13");
const QString office = QStringLiteral("127.0.0.14");
const QString livingRoomSub = QStringLiteral("127.0.0.15");
const QString allHosts[] = {livingRoom, kitchen, diningRoom, office, livingRoomSub};

// A soundbar with its sub, the kitchen leading a group with the dining room, and an office.
const QByteArray household = R"({
  "household": "Sonos_Speaker_Controller_Test",
  "players": [
    {"host": "127.0.0.11", "uid": "RINCON_000E58C0A1B101400", "room": "Living Room",
     "model": "Sonos Arc", "satellites": ["127.0.0.15"]},
    {"host": "127.0.0.12", "uid": "RINCON_000E58C0A1B201400", "room": "Kitchen",
     "model": "Sonos One"},
    {"host": "127.0.0.13", "uid": "RINCON_000E58C0A1B301400", "room": "Dining Room",
     "model": "Sonos One"},
    {"host": "127.0.0.14", "uid": "RINCON_000E58C0A1B401400", "room": "Office",
     "model": "Sonos Era 100"},
    {"host": "127.0.0.15", "uid": "RINCON_000E58C0A1B501400", "room": "Living Room",
     "model": "Sonos Sub"}
  ],
  "groups": [
    {"coordinator": "RINCON_000E58C0A1B201400", "members": ["RINCON_000E58C0A1B301400"]}
  ]
})";

RetrySchedule quickSchedule()
{
    RetrySchedule schedule = RetrySchedule{}.scaledDown(50);
    schedule.sweepSeconds = 0.3;
    return schedule;
}

Fault delay(const char* only, int delayMs)
{
    return {.kind = Fault::Kind::Delay, .delayMs = delayMs, .only = QString::fromUtf8(only)};
}

Fault refuse(const char* only)
{
    return {.kind = Fault::Kind::Status, .only = QString::fromUtf8(only)};
}

using Kind = SpeakerProblem::Kind;

} // namespace

class ControllerTest : public ::testing::Test {
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
        for (const QString& host : allHosts) {
            (*players)->setOnline(host, true);
            (*players)->setQuirks(host, {});
            (*players)->setVolume(host, 20);
            (*players)->setMuted(host, false);
        }
        (*players)->clearRequests();
        // A coordinator of the test's own, so that no sweep of an earlier test is reused.
        discovery = std::make_unique<SonosDiscovery::Coordinator>();
    }

    void TearDown() override
    {
        speaker.reset();
        discovery.reset();
    }

    SpeakerController& make(const QString& name, const QString& knownHost = {},
                            RetrySchedule schedule = quickSchedule())
    {
        speaker = std::make_unique<SpeakerController>(name, schedule);
        speaker->setDiscovery(*discovery);
        speaker->setKnownHost(knownHost);
        QObject::connect(speaker.get(), &SpeakerController::changed,
                         [this] { seen.append(speaker->snapshot()); });
        QObject::connect(speaker.get(), &SpeakerController::hostLearned,
                         [this](const QString& host) { learned.append(host); });
        return *speaker;
    }

    // Supervised and connected to `name`.
    SpeakerController& connected(const QString& name, const QString& knownHost = {})
    {
        SpeakerController& controller = make(name, knownHost);
        controller.startSupervision();
        const bool up = spinUntil([&] { return controller.snapshot().connected; }, 10s);
        EXPECT_TRUE(up);
        return controller;
    }

    static QList<emulator::Request> sent(const QString& host, const QString& action)
    {
        QList<emulator::Request> matching;
        for (const emulator::Request& request : (*players)->requests(host))
            if (request.action == action)
                matching.append(request);
        return matching;
    }

    static inline std::unique_ptr<emulator::EmulatorThread> players;
    std::unique_ptr<SonosDiscovery::Coordinator> discovery;
    std::unique_ptr<SpeakerController> speaker;
    QList<SpeakerController::Snapshot> seen;
    QStringList learned;
};

TEST(RetryScheduleTest, BackOffDoublesFromTenSecondsAndStopsAtTwoMinutes)
{
    const RetrySchedule schedule;
    std::vector<long> waits;
    RetrySchedule::Duration backoff = schedule.firstBackoff;
    for (int i = 0; i < 6; ++i) {
        backoff = schedule.nextBackoff(backoff, false);
        waits.push_back(std::chrono::duration_cast<std::chrono::seconds>(backoff).count());
    }
    EXPECT_EQ(waits, (std::vector<long>{10, 20, 40, 80, 120, 120}));
    // A fresh request to connect retries after ten seconds, however long the back-off was.
    EXPECT_EQ(schedule.nextBackoff(std::chrono::seconds(120), true), std::chrono::seconds(10));
}

TEST_F(ControllerTest, TenChangesDuringASendGiveOneMoreSendWithTheTenthClamped)
{
    SpeakerController& controller = connected("Living Room");
    (*players)->setFault(livingRoom, delay("SetVolume", 400));
    controller.set(11);
    ASSERT_TRUE(spinUntil([] { return sent(livingRoom, "SetVolume").size() == 1; }));
    for (int volume = 31; volume <= 40; ++volume)
        controller.set(volume);
    EXPECT_EQ(controller.snapshot().volume, 40); // cached at once, before any answer

    ASSERT_TRUE(spinUntil([] { return sent(livingRoom, "SetVolume").size() == 2; }));
    spinFor(1000ms); // long enough for a third send to show up, were there one
    const QList<emulator::Request> sets = sent(livingRoom, "SetVolume");
    ASSERT_EQ(sets.size(), 2);
    EXPECT_EQ(sets[0].argument("DesiredVolume"), "11");
    EXPECT_EQ(sets[1].argument("DesiredVolume"), "40");
    EXPECT_EQ((*players)->volume(livingRoom), 40);
    EXPECT_EQ(controller.snapshot().volume, 40);

    // Changes are clamped, and mute travels with the volume.
    (*players)->clearFaults();
    controller.apply(-4, true);
    EXPECT_EQ(controller.snapshot().volume, 0);
    ASSERT_TRUE(spinUntil([] { return (*players)->muted(livingRoom); }));
    ASSERT_TRUE(spinUntil([] { return (*players)->volume(livingRoom) == 0; }));
    controller.set(130);
    ASSERT_TRUE(spinUntil([] { return (*players)->volume(livingRoom) == 100; }));
}

TEST_F(ControllerTest, GroupedVolumeGoesToTheLeaderAndFallsBackToThePlayer)
{
    LogWatch log;
    SpeakerController& controller = connected("Dining Room");
    ASSERT_TRUE(spinUntil([&] { return controller.isGrouped(); }));
    ASSERT_TRUE(
        spinUntil([&] { return !log.lines().filter("Connected to Dining Room").isEmpty(); }));
    EXPECT_FALSE(log.lines().filter(" — grouped, volume goes to Kitchen").isEmpty());

    controller.set(44);
    ASSERT_TRUE(spinUntil([] { return sent(kitchen, "SetGroupVolume").size() == 1; }));
    EXPECT_EQ(sent(kitchen, "SetGroupVolume")[0].argument("DesiredVolume"), "44");

    (*players)->setFault(kitchen, refuse("SetGroupVolume"));
    controller.set(33);
    ASSERT_TRUE(spinUntil([] { return sent(diningRoom, "SetVolume").size() == 1; }));
    EXPECT_EQ(sent(diningRoom, "SetVolume")[0].argument("DesiredVolume"), "33");
    EXPECT_TRUE(spinUntil([] { return (*players)->volume(diningRoom) == 33; }));

    // Until the group is looked at again, changes no longer fail at the group first.
    controller.set(34);
    ASSERT_TRUE(spinUntil([] { return sent(diningRoom, "SetVolume").size() == 2; }));
    EXPECT_EQ(sent(kitchen, "SetGroupVolume").size(), 2);
    EXPECT_EQ(log.count("group volume failed (HTTP 500); falling back to this player"), 1);
}

// A slide down to almost nothing and back leaves the members as they were: the group takes
// one snapshot of their ratios before the slide's first change.
TEST_F(ControllerTest, AGroupVolumeSlideKeepsTheMembersRatios)
{
    (*players)->setVolume(kitchen, 10);
    (*players)->setVolume(diningRoom, 30);
    SpeakerController& controller = connected("Kitchen");
    ASSERT_TRUE(spinUntil([&] { return controller.isGrouped(); }));
    controller.set(1);
    controller.set(20);
    ASSERT_TRUE(spinUntil([] { return sent(kitchen, "SetGroupVolume").size() == 2; }));
    EXPECT_EQ((*players)->volume(kitchen), 10);
    EXPECT_EQ((*players)->volume(diningRoom), 30);
    QStringList actions;
    for (const emulator::Request& request : (*players)->requests(kitchen))
        if (request.action == "SnapshotGroupVolume" || request.action == "SetGroupVolume")
            actions << request.action; // health checks read the group volume meanwhile
    EXPECT_EQ(actions, (QStringList{"SnapshotGroupVolume", "SetGroupVolume", "SetGroupVolume"}));
}

// A player fixed at line level is connected but takes no change; once the fixed output is
// switched off in the Sonos app, the next look at the player notices.
TEST_F(ControllerTest, AFixedVolumePlayerIsConnectedButSentNoChange)
{
    (*players)->setQuirks(office, {.fixedVolume = true});
    SpeakerController& controller = connected("Office");
    EXPECT_TRUE(controller.snapshot().fixedVolume);
    controller.set(40);
    spinFor(300ms);
    EXPECT_TRUE(sent(office, "SetVolume").isEmpty());
    EXPECT_EQ(controller.snapshot().problem, std::nullopt);

    (*players)->setQuirks(office, {});
    EXPECT_TRUE(spinUntil([&] { return !controller.snapshot().fixedVolume; }));
}

TEST_F(ControllerTest, TwoEmptySweepsPointAtTheNetwork)
{
    LogWatch log;
    for (const QString& host : allHosts) {
        emulator::PlayerQuirks mute;
        mute.answersSsdp = false;
        (*players)->setQuirks(host, mute);
    }
    SpeakerController& controller = make("Office");
    controller.startSupervision();
    ASSERT_TRUE(spinUntil([&] { return discovery->sweepsStarted() >= 2; }));
    ASSERT_TRUE(spinUntil([&] { return log.lines().size() >= 2; }));

    const SpeakerProblem empty{Kind::noSpeakersFound, {}};
    ASSERT_TRUE(spinUntil([&] { return controller.snapshot().problem == empty; }));
    ASSERT_FALSE(seen.isEmpty());
    EXPECT_EQ(seen.first().problem, (SpeakerProblem{Kind::looking, "Office"}));
    EXPECT_FALSE(log.lines().filter("no zones discovered (sweep 2)").isEmpty());

    for (const QString& host : allHosts)
        (*players)->setQuirks(host, {});
    ASSERT_TRUE(spinUntil([&] { return controller.snapshot().connected; }, 10s));
    EXPECT_EQ(controller.snapshot().problem, std::nullopt);
    EXPECT_EQ(controller.snapshot().name, "Office");
}

TEST_F(ControllerTest, APlayerThatDisappearsIsReportedAndReconnectedWhenItReturns)
{
    LogWatch log;
    SpeakerController& controller = connected("Office");
    seen.clear();
    (*players)->setOnline(office, false);
    ASSERT_TRUE(spinUntil([&] { return !controller.snapshot().connected; }));
    const auto unreachable =
        std::find_if(seen.begin(), seen.end(), [](const SpeakerController::Snapshot& s) {
            return !s.connected && s.problem == SpeakerProblem{Kind::unreachable, {}};
        });
    EXPECT_NE(unreachable, seen.end());
    EXPECT_FALSE(log.lines().filter("health check failed: ").isEmpty());

    (*players)->setOnline(office, true);
    ASSERT_TRUE(spinUntil([&] { return controller.snapshot().connected; }, 10s));
    EXPECT_EQ(controller.snapshot().problem, std::nullopt);
    EXPECT_TRUE(spinUntil([&] { return log.count("Reconnected to Office at 127.0.0.14") == 1; }));
}

TEST_F(ControllerTest, AChangeMadeElsewhereIsAdopted)
{
    LogWatch log;
    SpeakerController& controller = connected("Office");
    EXPECT_EQ(controller.snapshot().volume, 20);
    (*players)->setVolume(office, 71);
    ASSERT_TRUE(spinUntil([&] { return controller.snapshot().volume == 71; }));
    EXPECT_EQ(log.count("speaker moved externally to 71"), 1);

    (*players)->setMuted(office, true);
    ASSERT_TRUE(spinUntil([&] { return controller.snapshot().muted; }));
    EXPECT_EQ(log.count("speaker moved externally to 71 (muted)"), 1);
    // Once adopted, the same level read again is no news.
    spinFor(500ms);
    EXPECT_EQ(log.count("speaker moved externally to 71 (muted)"), 1);
}

TEST_F(ControllerTest, ASpeakerThatAnswersDiscoveryButNotControlIsUnreachable)
{
    LogWatch log;
    (*players)->setFault(office, refuse("/MediaRenderer"));
    SpeakerController& controller = make("Office");
    controller.startSupervision();
    const SpeakerProblem refused{Kind::answeredDiscoveryOnly, "Office"};
    ASSERT_TRUE(spinUntil([&] { return controller.snapshot().problem == refused; }));
    EXPECT_FALSE(controller.snapshot().connected);
    EXPECT_FALSE(log.lines()
                     .filter("Speaker 'Office' answered discovery but not control: HTTP 500")
                     .isEmpty());
}

TEST_F(ControllerTest, ARememberedAddressConnectsWithoutASweepUnlessNowInAnotherRoom)
{
    {
        LogWatch log;
        SpeakerController& controller = connected("Office", office);
        ASSERT_TRUE(
            spinUntil([&] { return !log.lines().filter("Connected to Office").isEmpty(); }));
        EXPECT_EQ(discovery->sweepsStarted(), 0);
        EXPECT_FALSE(log.lines().filter("at 127.0.0.14 (remembered address), volume 20").isEmpty());
        EXPECT_EQ(learned.value(0), office);
        EXPECT_FALSE(controller.isGrouped());
    }
    learned.clear();
    LogWatch log;
    SpeakerController& controller = connected("Office", livingRoom);
    EXPECT_EQ(controller.device()->host, office);
    EXPECT_EQ(discovery->sweepsStarted(), 1);
    EXPECT_EQ(controller.knownHost(), office);
    EXPECT_EQ(learned.value(0), office);
    ASSERT_TRUE(spinUntil([&] { return !log.lines().filter("Connected to Office").isEmpty(); }));
    EXPECT_TRUE(log.lines().filter("remembered address").isEmpty());
}

// An address remembered from the sub (as a run without the topology once learned it) is not
// used; with the topology refused everywhere, its events too, the soundbar still wins over
// its sub.
TEST_F(ControllerTest, TheKeysDriveTheRoomsLeaderNeverItsSub)
{
    EXPECT_EQ(connected("Living Room", livingRoomSub).device()->host, livingRoom);
    for (const QString& host : allHosts)
        (*players)->setFault(
            host,
            {.kind = emulator::Fault::Kind::Status, .status = 500, .only = "/ZoneGroupTopology"});
    speaker.reset();
    discovery = std::make_unique<SonosDiscovery::Coordinator>();
    EXPECT_EQ(connected("Living Room", livingRoomSub).device()->host, livingRoom);
    EXPECT_EQ(connected("Living Room").device()->host, livingRoom);
}

// The neighbours' household on the same network has a living room too, and its player's
// address sorts first; the speaker stays in the household it was found in. Each household's
// topology hides its own sub.
TEST_F(ControllerTest, ARoomOfTheSameNameInAnotherHouseholdIsNeverChosen)
{
    emulator::EmulatorThread neighbours;
    const std::optional<QString> failure = neighbours.startJson(R"({
      "household": "Sonos_Neighbours",
      "players": [{"host": "127.0.0.10", "uid": "RINCON_000E58D0A1B101400",
                   "room": "Living Room", "model": "Sonos Beam", "satellites": ["127.0.0.9"]},
                  {"host": "127.0.0.9", "uid": "RINCON_000E58D0A1B201400",
                   "room": "Living Room", "model": "Sonos Sub Mini"}]})",
                                                                1400, true);
    ASSERT_EQ(failure, std::nullopt) << failure->toStdString();
    SpeakerController& controller = connected("Office");
    controller.switchTo("Living Room");
    ASSERT_TRUE(spinUntil([&] { return controller.snapshot().connected; }));
    EXPECT_EQ(controller.device()->host, livingRoom);

    const QFuture<QList<SonosDevice>> scan = ZoneScan::visibleZones(*discovery, 0.3);
    ASSERT_TRUE(testing_support::await(scan));
    QStringList hosts;
    for (const SonosDevice& zone : scan.result())
        hosts << zone.host;
    EXPECT_EQ(hosts, (QStringList{"127.0.0.13", "127.0.0.12", "127.0.0.10", livingRoom, office}));
}

TEST_F(ControllerTest, SwitchingSpeakersMovesTheConnection)
{
    SpeakerController& controller = connected("Office");
    controller.switchTo("Living Room");
    EXPECT_EQ(controller.snapshot().name, "Living Room");
    EXPECT_FALSE(controller.snapshot().connected);
    ASSERT_TRUE(spinUntil([&] { return controller.snapshot().connected; }));
    EXPECT_EQ(controller.device()->host, livingRoom);
    EXPECT_EQ(controller.speakerName(), "Living Room");

    controller.set(27);
    ASSERT_TRUE(spinUntil([] { return (*players)->volume(livingRoom) == 27; }));
    EXPECT_TRUE(sent(office, "SetVolume").isEmpty());

    controller.switchTo(QString());
    const SpeakerProblem noneChosen{Kind::noSpeakerChosen, {}};
    ASSERT_TRUE(spinUntil([&] { return controller.snapshot().problem == noneChosen; }));
    EXPECT_FALSE(controller.snapshot().connected);
}

TEST_F(ControllerTest, ReconnectNowLeavesAHealthyConnectionAlone)
{
    LogWatch log;
    SpeakerController& controller = make("Office");
    controller.reconnectNow("woke from sleep");
    EXPECT_EQ(log.count("reconnecting immediately (woke from sleep)"), 1);
    ASSERT_TRUE(spinUntil([&] { return controller.snapshot().connected; }));
    const int sweeps = discovery->sweepsStarted();
    (*players)->clearRequests();

    controller.reconnectNow("network changed");
    EXPECT_EQ(log.count("network changed; connection is healthy, leaving it alone"), 1);
    spinFor(300ms);
    EXPECT_EQ(discovery->sweepsStarted(), sweeps);
    // Health checks go on as before, but nothing asks the player to describe itself again.
    for (const emulator::Request& request : (*players)->requests(office))
        EXPECT_FALSE(request.path.contains("device_description")) << request.path.constData();
    EXPECT_TRUE(controller.snapshot().connected);
}

TEST_F(ControllerTest, AReconnectThatSucceedsIsCheckedLikeAnyConnection)
{
    (*players)->setOnline(office, false);
    RetrySchedule schedule = quickSchedule();
    schedule.firstBackoff = schedule.maxBackoff = 60s;
    SpeakerController& controller = make("Office", office, schedule);
    controller.startSupervision();
    ASSERT_TRUE(spinUntil([&] { return controller.snapshot().problem.has_value(); }));

    (*players)->setOnline(office, true);
    controller.reconnectNow("network changed");
    ASSERT_TRUE(spinUntil([&] { return controller.snapshot().connected; }));
    (*players)->setVolume(office, 37);
    EXPECT_TRUE(spinUntil([&] { return controller.snapshot().volume == 37; }));
}

TEST_F(ControllerTest, AnAnswerForAnAbandonedConnectionIsDropped)
{
    LogWatch log;
    (*players)->setFault(office, delay("GetVolume", 800));
    SpeakerController& controller = make("Office");
    controller.reconnectNow("test");
    ASSERT_TRUE(spinUntil([] { return sent(office, "GetVolume").size() == 1; }));
    controller.switchTo("Living Room");
    ASSERT_TRUE(spinUntil([&] { return controller.snapshot().connected; }));
    spinFor(1200ms); // the office's late answer arrives meanwhile
    EXPECT_EQ(controller.snapshot().name, "Living Room");
    EXPECT_EQ(controller.device()->host, livingRoom);
    EXPECT_EQ(controller.knownHost(), livingRoom);
    EXPECT_EQ(learned, QStringList{livingRoom});
    EXPECT_TRUE(log.lines().filter("Connected to Office").isEmpty());
}

TEST_F(ControllerTest, ARememberedPlayerInAnotherLeadersGroupFindsItsLeader)
{
    SpeakerController& controller = connected("Dining Room", diningRoom);
    ASSERT_TRUE(spinUntil([&] { return controller.isGrouped(); }));
    EXPECT_EQ(discovery->sweepsStarted(), 1); // only to learn where the kitchen lives
    controller.set(52);
    ASSERT_TRUE(spinUntil([] { return sent(kitchen, "SetGroupVolume").size() == 1; }));
    EXPECT_TRUE(sent(diningRoom, "SetVolume").isEmpty());
}

TEST_F(ControllerTest, AFailedSendIsReportedAndClearedWhenTheSpeakerAnswersAgain)
{
    LogWatch log;
    SpeakerController& controller = connected("Office");
    (*players)->setFault(office, refuse("SetVolume"));
    seen.clear();
    controller.set(64);
    // The next health check may clear the reason within milliseconds, so look at every
    // snapshot handed out rather than at the latest.
    ASSERT_TRUE(spinUntil([&] {
        return std::any_of(seen.begin(), seen.end(), [](const SpeakerController::Snapshot& s) {
            return s.problem == SpeakerProblem{Kind::unreachable, {}};
        });
    }));
    EXPECT_EQ(log.count("send failed (HTTP 500); will retry after reconnect"), 1);

    (*players)->clearFaults();
    ASSERT_TRUE(spinUntil([&] { return !controller.snapshot().problem; }));
    EXPECT_TRUE(controller.snapshot().connected);
    // The speaker never took the change, and the controller now shows what it has.
    EXPECT_EQ(controller.snapshot().volume, 20);
    EXPECT_EQ(log.count("speaker moved externally to 20"), 1);
}

TEST_F(ControllerTest, AHealthCheckAnsweredAfterALocalChangeDoesNotUndoIt)
{
    SpeakerController& controller = connected("Office");
    (*players)->clearRequests();
    (*players)->setFault(office, delay("GetVolume", 400));
    // A health check is out; its answer (20) was made before the change below.
    ASSERT_TRUE(spinUntil([] { return sent(office, "GetVolume").size() == 1; }));
    seen.clear();
    controller.set(60);
    spinFor(1500ms);
    ASSERT_FALSE(seen.isEmpty());
    for (const SpeakerController::Snapshot& s : seen)
        EXPECT_EQ(s.volume, 60);
    EXPECT_EQ((*players)->volume(office), 60);
}
