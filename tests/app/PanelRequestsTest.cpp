// What the panel's controls do to an emulated household, and what its snapshots show of it, over
// real SSDP and HTTP in a private network namespace.
#include "app/PanelRequests.h"

#include "app/SnapshotBuilder.h"
#include "common/Wait.h"
#include "discovery/Coordinator.h"
#include "emulator/Emulator.h"
#include "media/MediaSource.h"
#include "speaker/SpeakerController.h"

#include <gtest/gtest.h>

#include <memory>

using namespace std::chrono_literals;
using testing_support::spinFor;
using testing_support::spinUntil;

namespace {

const QString livingRoom = QStringLiteral("127.0.0.11");
const QString den = QStringLiteral("127.0.0.12");

// A soundbar playing a queue, and a player playing its line input.
const QByteArray household = R"({
  "household": "Sonos_Panel_Requests_Test",
  "players": [
    {"host": "127.0.0.11", "uid": "RINCON_000E58C0A2B101400", "room": "Living Room",
     "model": "Sonos Arc", "transport": "PLAYING", "eq": {"NightMode": false},
     "track": {"uri": "x-sonos-spotify:track1", "title": "Song", "artist": "Band"}},
    {"host": "127.0.0.12", "uid": "RINCON_000E58C0A2B201400", "room": "Den",
     "model": "Sonos Five", "transport": "PLAYING",
     "track": {"uri": "x-rincon-stream:RINCON_000E58C0A2B201400", "title": "Line-In"}}
  ]
})";

// The computer's own player, as far as the requests can tell: what it was told.
class RecordingMediaSource : public MediaSource {
public:
    QFuture<std::optional<Item>> current() override { return NoMediaSource().current(); }
    void send(Command command) override { sent.append(command); }
    QList<Command> sent;
};

} // namespace

class PanelRequestsTest : public ::testing::Test {
protected:
    static void SetUpTestSuite()
    {
        players = std::make_unique<emulator::EmulatorThread>();
        const std::optional<QString> failure = players->startJson(household, 1400, true);
        ASSERT_EQ(failure, std::nullopt) << failure->toStdString();
    }
    static void TearDownTestSuite() { players.reset(); }

    void SetUp() override { (*players)->clearFaults(); }

    // Requests against `room`, once the speaker controller is connected to it.
    PanelRequests& connectedTo(const QString& room)
    {
        settings.speaker = room;
        // Waits scaled down fifty times: the speaker is found and checked in moments.
        RetrySchedule schedule = RetrySchedule{}.scaledDown(50);
        schedule.sweepSeconds = 0.3;
        speaker = std::make_unique<SpeakerController>(room, schedule);
        speaker->setDiscovery(discovery);
        speaker->startSupervision();
        EXPECT_TRUE(spinUntil([this] { return speaker->snapshot().connected; }));
        (*players)->clearRequests();
        requests = std::make_unique<PanelRequests>(
            PanelRequests::State{settings, mirror, mirrorGeneration}, *speaker, media);
        QObject::connect(requests.get(), &PanelRequests::settingsChanged, [this] { ++saves; });
        QObject::connect(requests.get(), &PanelRequests::pollRequested, [this] { ++polls; });
        return *requests;
    }

    static QList<emulator::Request> sent(const QString& host, const QString& action = {})
    {
        QList<emulator::Request> matching;
        for (const emulator::Request& request : (*players)->requests(host))
            if (action.isEmpty() || request.action == action)
                matching.append(request);
        return matching;
    }

    static inline std::unique_ptr<emulator::EmulatorThread> players;
    SonosDiscovery::Coordinator discovery;
    Settings settings;
    VolumeMirror mirror;
    quint64 mirrorGeneration = 0;
    RecordingMediaSource media;
    std::unique_ptr<SpeakerController> speaker;
    std::unique_ptr<PanelRequests> requests;
    int saves = 0;
    int polls = 0;
};

TEST_F(PanelRequestsTest, ADraggedSliderMovesTheMirrorAtOnceAndSendsTheLastLevel)
{
    PanelRequests& panel = connectedTo(QStringLiteral("Living Room"));
    mirror.muted = true;
    panel.panelDidRequestVolume(0);
    EXPECT_TRUE(mirror.muted); // at zero a muted speaker stays muted
    for (int level = 1; level <= 30; ++level)
        panel.panelDidRequestVolume(level);
    EXPECT_FALSE(mirror.muted);
    EXPECT_EQ(mirror.volume, 30);
    EXPECT_EQ(mirrorGeneration, 31u);

    ASSERT_TRUE(spinUntil([] { return (*players)->volume(livingRoom) == 30; }));
    spinFor(300ms); // long enough for a late send to show up, were there one
    const QList<emulator::Request> sets = sent(livingRoom, QStringLiteral("SetVolume"));
    ASSERT_FALSE(sets.isEmpty());
    EXPECT_LT(sets.size(), 5);
    EXPECT_EQ(sets.last().argument("DesiredVolume"), "30");
}

TEST_F(PanelRequestsTest, NightModeIsReadThenSwitchedTheOtherWay)
{
    PanelRequests& panel = connectedTo(QStringLiteral("Living Room"));
    panel.panelDidToggleNight();
    ASSERT_TRUE(spinUntil([this] { return polls == 1; }));
    const QList<emulator::Request> writes = sent(livingRoom, QStringLiteral("SetEQ"));
    ASSERT_EQ(writes.size(), 1);
    EXPECT_EQ(writes[0].argument("EQType"), "NightMode");
    EXPECT_EQ(writes[0].argument("DesiredValue"), "1");
}

TEST_F(PanelRequestsTest, ChoosingTheChosenSpeakerAgainSavesAndSendsNothing)
{
    PanelRequests& panel = connectedTo(QStringLiteral("Living Room"));
    int switches = 0; // a switch tells of the dropped connection at once
    QObject::connect(speaker.get(), &SpeakerController::changed, [&switches] { ++switches; });
    panel.panelDidChooseSpeaker(QStringLiteral("Living Room"), Settings::Route::Optical);
    EXPECT_EQ(switches, 0);
    EXPECT_EQ(saves, 0);
    EXPECT_EQ(polls, 0);
    EXPECT_TRUE(speaker->snapshot().connected);

    // The same room by another route is a new choice.
    panel.panelDidChooseSpeaker(QStringLiteral("Living Room"), Settings::Route::Airplay);
    EXPECT_EQ(switches, 1);
    EXPECT_EQ(saves, 1);
    EXPECT_EQ(settings.route, Settings::Route::Airplay);
}

TEST_F(PanelRequestsTest, NextGoesToTheSpeakersTransport)
{
    PanelRequests& panel = connectedTo(QStringLiteral("Living Room"));
    panel.panelDidRequestTransport(PanelTransport::next);
    ASSERT_TRUE(spinUntil([this] { return polls == 1; }));
    EXPECT_EQ(sent(livingRoom, QStringLiteral("Next")).size(), 1);
    EXPECT_TRUE(media.sent.isEmpty());
}

TEST_F(PanelRequestsTest, NextWhileTheSpeakerPlaysItsLineInputGoesToTheComputersPlayer)
{
    PanelRequests& panel = connectedTo(QStringLiteral("Den"));
    panel.panelDidRequestTransport(PanelTransport::next);
    ASSERT_TRUE(spinUntil([this] { return polls == 1; }));
    EXPECT_EQ(media.sent, QList<MediaSource::Command>{MediaSource::Command::next});
    EXPECT_TRUE(sent(den, QStringLiteral("Next")).isEmpty());
}

TEST_F(PanelRequestsTest, ASnapshotKeepsWhatTheSpeakerAnsweredWhenOneAnswerIsGarbage)
{
    connectedTo(QStringLiteral("Living Room"));
    (*players)->setFault(livingRoom,
                         {.kind = emulator::Fault::Kind::Garbage, .only = QStringLiteral("GetEQ")});
    SnapshotBuilder builder(media);
    SnapshotInputs in;
    in.generation = 7;
    in.speaker = speaker->snapshot();
    in.device = speaker->device();
    QFuture<PanelSnapshot> built = builder.build(in);
    ASSERT_TRUE(testing_support::await(built));
    const PanelSnapshot snapshot = built.result();
    EXPECT_EQ(snapshot.generation, 7u);
    EXPECT_EQ(snapshot.night, std::nullopt);
    EXPECT_EQ(snapshot.speech, std::nullopt);
    EXPECT_EQ(snapshot.title, QStringLiteral("Song"));
    EXPECT_EQ(snapshot.subtitle, QStringLiteral("Band"));
    EXPECT_TRUE(snapshot.isPlaying);
    EXPECT_TRUE(snapshot.canControlTransport);
}
