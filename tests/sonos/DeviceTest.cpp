// The zone player client against the household emulator over real sockets: the exact bytes
// it sends, what it makes of the players' answers and failures, and many requests at once.
// Runs in a private network namespace, where the players own 127.0.0.1x:1400.
#include "Results.h"
#include "common/LogWatch.h"
#include "emulator/Emulator.h"
#include "sonos/SonosDevice.h"

#include <gtest/gtest.h>

#include <memory>

using namespace speaker_testing;
using namespace std::chrono_literals;
using emulator::Fault;

namespace {

const QString arcHost = QStringLiteral("127.0.0.11");
const QString hosts[] = {arcHost, QStringLiteral("127.0.0.12"), QStringLiteral("127.0.0.13"),
                         QStringLiteral("127.0.0.14")};

const QByteArray household = R"({
  "household": "Sonos_Speaker_Test_Household",
  "players": [
    {"host": "127.0.0.11", "uid": "RINCON_000E58A0B1C201400", "room": "Living Room",
     "model": "Sonos Arc", "eq": {"NightMode": false, "DialogLevel": false}},
    {"host": "127.0.0.12", "uid": "RINCON_000E58A0B1C301400", "room": "Kitchen",
     "model": "Sonos One"},
    {"host": "127.0.0.13", "uid": "RINCON_000E58A0B1C401400", "room": "Office",
     "model": "Sonos One"},
    {"host": "127.0.0.14", "uid": "RINCON_000E58A0B1C501400", "room": "Bedroom",
     "model": "Sonos One"},
    {"host": "127.0.0.15", "uid": "RINCON_000E58A0B1C601400", "room": "Den",
     "model": "Sonos Arc Ultra", "eq": {"SpeechEnhanceEnabled": false, "DialogLevel": 3}}
  ]
})";

class DeviceTest : public ::testing::Test {
protected:
    static void SetUpTestSuite()
    {
        players = std::make_unique<emulator::EmulatorThread>();
        const std::optional<QString> failure = players->startJson(household);
        ASSERT_EQ(failure, std::nullopt) << failure->toStdString();
    }
    static void TearDownTestSuite() { players.reset(); }

    void SetUp() override
    {
        ASSERT_TRUE(players);
        (*players)->clearFaults();
        (*players)->clearRequests();
    }

    static SonosDevice device(const QString& host = arcHost)
    {
        return SonosDevice{host, (*players)->uid(host), (*players)->roomName(host),
                           QStringLiteral("Sonos One")};
    }
    static QList<emulator::Request> requests(const QString& host = arcHost)
    {
        return (*players)->requests(host);
    }
    static QStringList actions(const QString& host = arcHost)
    {
        QStringList names;
        for (const emulator::Request& request : requests(host))
            names << request.action;
        return names;
    }
    static void fault(Fault::Kind kind, const QString& only = {})
    {
        Fault f;
        f.kind = kind;
        f.only = only;
        (*players)->setFault(arcHost, f);
    }

    static inline std::unique_ptr<emulator::EmulatorThread> players;
};

TEST_F(DeviceTest, SetVolumeSendsExactlyTheseBytes)
{
    ASSERT_TRUE(succeeded(settle(device().setVolume(37))));
    const QList<emulator::Request> sent = requests();
    ASSERT_EQ(sent.size(), 1);
    const emulator::Request& request = sent.first();
    const QByteArray body =
        "<?xml version=\"1.0\"?>\n"
        "<s:Envelope xmlns:s=\"http://schemas.xmlsoap.org/soap/envelope/\" "
        "s:encodingStyle=\"http://schemas.xmlsoap.org/soap/encoding/\"><s:Body>"
        "<u:SetVolume xmlns:u=\"urn:schemas-upnp-org:service:RenderingControl:1\">"
        "<InstanceID>0</InstanceID><Channel>Master</Channel><DesiredVolume>37</DesiredVolume>"
        "</u:SetVolume></s:Body></s:Envelope>";
    EXPECT_EQ(request.header("Content-Type"), "text/xml; charset=\"utf-8\"");
    EXPECT_EQ(request.body, body);
    EXPECT_TRUE(
        request.raw.startsWith("POST /MediaRenderer/RenderingControl/Control HTTP/1.1\r\n"));
    EXPECT_TRUE(request.raw.contains(
        "\r\nSOAPACTION: \"urn:schemas-upnp-org:service:RenderingControl:1#SetVolume\"\r\n"));
    EXPECT_TRUE(request.raw.endsWith("\r\n\r\n" + body));
    EXPECT_EQ((*players)->volume(arcHost), 37);
}

TEST_F(DeviceTest, SetVolumeClampsToTheScale)
{
    const std::pair<int, int> cases[] = {{150, 100}, {-3, 0}, {100, 100}, {0, 0}, {101, 100}};
    for (const auto& [asked, sent] : cases) {
        SCOPED_TRACE(asked);
        (*players)->clearRequests();
        ASSERT_TRUE(succeeded(settle(device().setVolume(asked))));
        ASSERT_EQ(requests().size(), 1);
        EXPECT_EQ(requests().first().argument(QStringLiteral("DesiredVolume")),
                  QString::number(sent));
        EXPECT_EQ((*players)->volume(arcHost), sent);
    }
}

TEST_F(DeviceTest, ReadsWhatThePlayerHolds)
{
    (*players)->setVolume(arcHost, 64);
    (*players)->setMuted(arcHost, true);
    EXPECT_EQ(settle(device().volume()).valueOr(-1), 64);
    EXPECT_TRUE(settle(device().isMuted()).valueOr(false));
    // A player on its own is a group of one.
    EXPECT_EQ(settle(device().groupVolume()).valueOr(-1), 64);
    EXPECT_TRUE(settle(device().isGroupMuted()).valueOr(false));

    EXPECT_EQ(actions(), (QStringList{"GetVolume", "GetMute", "GetGroupVolume", "GetGroupMute"}));
}

// The emulator takes each argument by name and refuses a missing or malformed one.
TEST_F(DeviceTest, WritesChangeWhatThePlayerHolds)
{
    ASSERT_TRUE(succeeded(settle(device().setMute(true))));
    EXPECT_TRUE((*players)->muted(arcHost));
    ASSERT_TRUE(succeeded(settle(device().setGroupMute(false))));
    EXPECT_FALSE((*players)->muted(arcHost));
    ASSERT_TRUE(succeeded(settle(device().setGroupVolume(30))));
    EXPECT_EQ((*players)->volume(arcHost), 30);
    ASSERT_TRUE(succeeded(settle(device().setEQ(QStringLiteral("NightMode"), true))));
    EXPECT_EQ((*players)->eq(arcHost, QStringLiteral("NightMode")), true);
}

// The topology's one action takes neither arguments nor an InstanceID.
TEST_F(DeviceTest, ZoneGroupStateIsAnEmptyActionOfTheTopologyService)
{
    const SonosResult<QString> answer = settle(device().zoneGroupState());
    ASSERT_TRUE(answer);
    EXPECT_TRUE(answer->contains(QStringLiteral("ZoneGroupState")));
    ASSERT_EQ(requests().size(), 1);
    EXPECT_TRUE(requests().first().body.endsWith(
        "<s:Body><u:GetZoneGroupState "
        "xmlns:u=\"urn:schemas-upnp-org:service:ZoneGroupTopology:1\"/></s:Body></s:Envelope>"));
}

TEST_F(DeviceTest, SpeechEnhancementUsesTheSwitchThePlayerHas)
{
    const QString ultraHost = QStringLiteral("127.0.0.15");
    const SonosDevice ultra = device(ultraHost);
    // The newer switch is off although its dialogue level is not zero.
    EXPECT_EQ(settle(ultra.speechEnhancement()).valueOr(true), false);
    ASSERT_TRUE(succeeded(settle(ultra.setSpeechEnhancement(true))));
    EXPECT_EQ((*players)->eq(ultraHost, QStringLiteral("SpeechEnhanceEnabled")), true);
    EXPECT_EQ(settle(ultra.speechEnhancement()).valueOr(false), true);

    // The older soundbar refuses the newer switch; its dialogue level is the switch.
    ASSERT_TRUE(succeeded(settle(device().setSpeechEnhancement(true))));
    EXPECT_EQ((*players)->eq(arcHost, QStringLiteral("DialogLevel")), true);
    EXPECT_EQ(settle(device().speechEnhancement()).valueOr(false), true);
    // A player with neither has no speech enhancement, which is not "off".
    EXPECT_FALSE(settle(device(hosts[1]).speechEnhancement()));
}

TEST_F(DeviceTest, PlayPauseAsksFirstAndThenSendsTheOpposite)
{
    emulator::Track track;
    track.uri = QStringLiteral("x-sonos-spotify:spotify%3atrack%3a1?sid=9&flags=8224");
    (*players)->setTrack(arcHost, track); // a player with nothing queued cannot play
    (*players)->setTransportState(arcHost, QStringLiteral("PLAYING"));
    EXPECT_TRUE(settle(device().isPlaying()).valueOr(false));
    (*players)->clearRequests();
    ASSERT_TRUE(succeeded(settle(device().playPause())));
    EXPECT_EQ(actions(), (QStringList{"GetTransportInfo", "Pause"}));
    EXPECT_NE((*players)->transportState(arcHost), QStringLiteral("PLAYING"));

    (*players)->setTransportState(arcHost, QStringLiteral("PAUSED_PLAYBACK"));
    (*players)->clearRequests();
    ASSERT_TRUE(succeeded(settle(device().playPause())));
    EXPECT_EQ(actions(), (QStringList{"GetTransportInfo", "Play"}));
    EXPECT_EQ((*players)->transportState(arcHost), QStringLiteral("PLAYING"));

    // When the question fails, nothing is sent.
    fault(Fault::Kind::Status, QStringLiteral("GetTransportInfo"));
    (*players)->clearRequests();
    EXPECT_EQ(errorOf(settle(device().playPause())), http(500));
    EXPECT_EQ(actions(), QStringList{"GetTransportInfo"});
    EXPECT_EQ((*players)->transportState(arcHost), QStringLiteral("PLAYING"));
}

TEST_F(DeviceTest, NowPlayingReadsTheTrackAsThePlayerMeansIt)
{
    emulator::Track track;
    track.uri = QStringLiteral("x-sonos-spotify:spotify%3atrack%3a1?sid=9&flags=8224");
    track.title = QStringLiteral("Simon & Garfunkel <Live> &amp;");
    track.artist = QStringLiteral("The \"Band\"");
    track.album = QStringLiteral("Hits");
    track.albumArt = QStringLiteral("/getaa?s=1&u=x-sonos-spotify");
    (*players)->setTrack(arcHost, track);
    const SonosResult<SonosDevice::NowPlaying> playing = settle(device().nowPlaying());
    ASSERT_TRUE(playing) << describe(playing.error()).toStdString();
    // The metadata was escaped twice on the way and the URI once: each comes back as it was
    // meant, and a title that itself reads "&amp;" keeps it.
    EXPECT_EQ(playing->uri, track.uri);
    EXPECT_EQ(playing->title, track.title);
    EXPECT_EQ(playing->artist, track.artist);
    EXPECT_EQ(playing->album, track.album);
    EXPECT_EQ(playing->albumArt, track.albumArt);
}

// A station's broken metadata and a refused station lookup still leave the song and the
// fields that did arrive.
TEST_F(DeviceTest, NowPlayingTakesWhatParsesOfBrokenMetadata)
{
    const emulator::Track track{.uri = "x-sonosapi-stream:s24896?sid=254&flags=8224&sn=0",
                                .metadata = "<DIDL-Lite><item><dc:title>cut off &bogus; &#xD800;"
                                            "<r:streamContent>Air - Sexy Boy</r:streamContent>"
                                            "<dc:creator>Air</dc:creator><upnp:album>"};
    (*players)->setTrack(arcHost, track);
    fault(Fault::Kind::Status, QStringLiteral("GetMediaInfo"));
    const SonosResult<SonosDevice::NowPlaying> playing = settle(device().nowPlaying());
    ASSERT_TRUE(succeeded(playing));
    EXPECT_EQ(actions(), (QStringList{"GetPositionInfo", "GetMediaInfo"}));
    EXPECT_EQ(playing->uri, track.uri);
    EXPECT_EQ(playing->streamContent, QStringLiteral("Air - Sexy Boy"));
    EXPECT_EQ(playing->artist, QStringLiteral("Air"));
    EXPECT_TRUE(playing->title.isEmpty() && playing->album.isEmpty() && playing->station.isEmpty());
}

TEST_F(DeviceTest, AnOfflinePlayerRefusesAndComesBack)
{
    const SonosDevice kitchen = device(hosts[1]);
    (*players)->setOnline(hosts[1], false);
    const SonosResult<int> offline = settle(kitchen.volume());
    EXPECT_EQ(transportCodeOf(offline), QNetworkReply::ConnectionRefusedError);
    (*players)->setOnline(hosts[1], true);
    EXPECT_TRUE(succeeded(settle(kitchen.volume())));
}

// A player that takes the request and never answers is given up on by the request time-out.
TEST_F(DeviceTest, APlayerThatNeverAnswersTimesOut)
{
    fault(Fault::Kind::Silent);
    EXPECT_EQ(transportCodeOf(settle(device().volume(), 20s)), QNetworkReply::TimeoutError);
}

// Players close keep-alive connections they find idle. A change sent on one as it closes
// gets no answer at all, and is sent once more on a new connection.
TEST_F(DeviceTest, AChangeMetByAnIdleCloseIsSentAgainOnce)
{
    const QString bedroom = hosts[3];
    (*players)->setQuirks(bedroom, {.closesIdleConnectionsAfterMs = 100});
    ASSERT_TRUE(succeeded(settle(device(bedroom).setVolume(30))));
    testing_support::spinFor(300ms);
    ASSERT_TRUE(succeeded(settle(device(bedroom).setVolume(31))));
    (*players)->setQuirks(bedroom, {});
    EXPECT_EQ((*players)->volume(bedroom), 31);
    EXPECT_EQ(actions(bedroom), (QStringList{"SetVolume", "SetVolume", "SetVolume"}));
}

TEST_F(DeviceTest, ManyRequestsInFlightToSeveralPlayers)
{
    constexpr int perPlayer = 25;
    QList<std::pair<int, QFuture<SonosResult<int>>>> reads;
    QList<QFuture<SonosResult<Done>>> writes;
    for (int i = 0; i < 4; ++i) {
        (*players)->setVolume(hosts[i], 10 + i);
        (*players)->setMuted(hosts[i], false);
    }
    for (int round = 0; round < perPlayer; ++round) {
        for (int i = 0; i < 4; ++i) {
            reads.append({10 + i, device(hosts[i]).volume()});
            if (round == 0)
                writes.append(device(hosts[i]).setMute(true));
        }
    }
    for (const auto& [expected, future] : reads) {
        const SonosResult<int> volume = settle(future);
        ASSERT_TRUE(volume) << describe(volume.error()).toStdString();
        EXPECT_EQ(*volume, expected);
    }
    for (const QFuture<SonosResult<Done>>& write : writes)
        EXPECT_TRUE(succeeded(settle(write)));
    for (int i = 0; i < 4; ++i) {
        EXPECT_EQ(requests(hosts[i]).size(), perPlayer + 1);
        EXPECT_TRUE((*players)->muted(hosts[i]));
    }
}

} // namespace
