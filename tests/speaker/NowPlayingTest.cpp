// What the panel shows of the speaker, from emulated players over real sockets in a private
// network namespace: the now-playing lines and the cover art.
#include "common/Wait.h"
#include "emulator/Emulator.h"
#include "sonos/Results.h"
#include "speaker/ArtworkCache.h"
#include "speaker/NowPlayingLines.h"

#include <QImage>
#include <QTemporaryDir>

#include <gtest/gtest.h>

#include <memory>

using namespace speaker_testing;
using namespace std::chrono_literals;
using emulator::Fault;

namespace {

const QString host = QStringLiteral("127.0.0.11");
const QString artPath =
    QStringLiteral("/getaa?s=1&u=x-sonos-spotify%3aspotify%253atrack%253a4uLU6hMC%3fsid%3d12");

class NowPlayingTest : public ::testing::Test {
protected:
    // The player's art is a 400×300 JPEG named in the household file.
    static void SetUpTestSuite()
    {
        folder = std::make_unique<QTemporaryDir>();
        QImage cover(400, 300, QImage::Format_RGB32);
        cover.fill(Qt::darkCyan);
        ASSERT_TRUE(cover.save(folder->filePath(QStringLiteral("cover.jpg")), "JPEG"));
        QFile file(folder->filePath(QStringLiteral("household.json")));
        ASSERT_TRUE(file.open(QIODevice::WriteOnly));
        file.write(R"({
  "household": "Sonos_Now_Playing_Test",
  "players": [{"host": "127.0.0.11", "uid": "RINCON_000E58D0A1B101400", "room": "Den",
               "model": "Sonos Beam", "art": "cover.jpg"}]
})");
        file.close();
        players = std::make_unique<emulator::EmulatorThread>();
        const std::optional<QString> failure = players->start(file.fileName());
        ASSERT_EQ(failure, std::nullopt) << failure->toStdString();
    }
    static void TearDownTestSuite()
    {
        players.reset();
        folder.reset();
    }

    void SetUp() override
    {
        ASSERT_TRUE(players);
        (*players)->clearFaults();
        (*players)->clearRequests();
        (*players)->setTrack(host, {.uri = "x-sonos-spotify:spotify%3atrack%3a4uLU6hMC?sid=12",
                                    .title = "Song",
                                    .albumArt = artPath});
    }

    static SonosDevice device() { return SonosDevice{host, (*players)->uid(host), "Den", "Beam"}; }

    static qsizetype artRequests()
    {
        qsizetype count = 0;
        for (const emulator::Request& request : (*players)->requests(host))
            count += request.path.startsWith("/getaa");
        return count;
    }

    // The cover art's future, answered in time: every fault below is answered or refused
    // at once, well inside the 5 s the reader would wait for a silent player.
    static Artwork settled(const QFuture<Artwork>& future)
    {
        EXPECT_TRUE(testing_support::await(future, 4s)) << "the art took a time-out to settle";
        return future.isFinished() ? future.result() : Artwork{};
    }

    static inline std::unique_ptr<QTemporaryDir> folder;
    static inline std::unique_ptr<emulator::EmulatorThread> players;
};

TEST_F(NowPlayingTest, RadioShowsTheSongOverTheStationAndTheTvInputAsTv)
{
    const std::pair<emulator::Track, NowPlayingLines> cases[] = {
        {{.uri = "x-sonosapi-stream:s24896?sid=254&flags=8224&sn=0",
          .streamContent = "Daft Punk - One More Time",
          .station = "Radio X & Friends"},
         {"One More Time", "Daft Punk", "Radio X & Friends"}},
        {{.uri = "x-sonos-htastream:RINCON_000E58D0A1B101400:spdif"}, {"TV", "", ""}},
    };
    for (const auto& [track, lines] : cases) {
        (*players)->setTrack(host, track);
        const SonosResult<SonosDevice::NowPlaying> playing = settle(device().nowPlaying());
        ASSERT_TRUE(succeeded(playing));
        EXPECT_EQ(NowPlayingLines::of(*playing), lines) << track.uri.toStdString();
    }
}

TEST_F(NowPlayingTest, CoverArtIsFetchedOnceAndShrunkToThePanel)
{
    ArtworkCache cache;
    const QFuture<Artwork> first = cache.artwork(device(), artPath);
    const QFuture<Artwork> second = cache.artwork(device(), artPath);
    const Artwork art = settled(first);
    EXPECT_EQ(settled(second), art);
    EXPECT_EQ(settled(cache.artwork(device(), artPath)), art);
    EXPECT_EQ(artRequests(), 1);
    EXPECT_TRUE(art.identity.startsWith(QStringLiteral("http://127.0.0.11:1400/getaa?s=1&u=")));
    ASSERT_TRUE(art.image);
    const QImage image = QImage::fromData(*art.image, "PNG");
    EXPECT_EQ(image.size(), QSize(168, 126));
}

TEST_F(NowPlayingTest, BrokenOrEnormousArtShowsNoImageAndIsNotFetchedAgain)
{
    const std::pair<Fault::Kind, qint64> faults[] = {
        {Fault::Kind::Oversized, 600 * 1024}, // over the reader's cap
        {Fault::Kind::Oversized, 0},          // empty
        {Fault::Kind::Oversized, 600},        // a picture cut short
        {Fault::Kind::NotImage, 0},           {Fault::Kind::Garbage, 0},
    };
    for (const auto& [kind, bodyBytes] : faults) {
        SCOPED_TRACE(::testing::Message() << int(kind) << " " << bodyBytes);
        (*players)->clearRequests();
        (*players)->setFault(host, {.kind = kind, .bodyBytes = bodyBytes, .only = "/getaa"});
        ArtworkCache cache;
        const Artwork art = settled(cache.artwork(device(), artPath));
        EXPECT_FALSE(art.image);
        // The network layer itself resends a request whose connection closed unanswered.
        const qsizetype fetched = artRequests();
        EXPECT_GE(fetched, 1);
        EXPECT_EQ(settled(cache.artwork(device(), artPath)), art);
        EXPECT_EQ(artRequests(), fetched);
    }
}

} // namespace
