// The computer's media as mpv and stand-in players publish it on a private session bus, mpv
// sending sound to a private PulseAudio.
#include "app/SnapshotBuilder.h"
#include "audio/PulseAudio.h"
#include "common/LogWatch.h"
#include "common/Wait.h"
#include "emulator/Emulator.h"
#include "media/MprisSource.h"

#include <QDBusMessage>
#include <QDBusVariant>
#include <QDBusVirtualObject>
#include <QImage>
#include <QProcess>
#include <QTemporaryDir>

#include <gtest/gtest.h>

using testing_support::spinUntil;
using Item = MediaSource::Item;

namespace {

const QString mprisPath = QStringLiteral("/org/mpris/MediaPlayer2");

// mpv playing an endless tone under `title`, published by its MPRIS script.
struct Mpv {
    Mpv(const QString& title, const QString& output, const QStringList& more = {})
    {
        process.start(QStringLiteral("mpv"),
                      QStringList{QStringLiteral("--no-config"),
                                  QStringLiteral("--script=/usr/lib/mpv-mpris/mpris.so"),
                                  QStringLiteral("--force-media-title=") + title,
                                  QStringLiteral("--ao=") + output,
                                  QStringLiteral("av://lavfi:sine")} +
                          more);
    }
    ~Mpv() { process.kill(), process.waitForFinished(); }
    QProcess process;
};

// A player on a connection of its own: it answers property reads as one playing `metadata`
// and never answers anything else, as a hung player does.
class StandIn : public QDBusVirtualObject {
public:
    explicit StandIn(const QVariantMap& metadata)
        : m_player{{QStringLiteral("PlaybackStatus"), QStringLiteral("Playing")},
                   {QStringLiteral("Metadata"), metadata}}
    {
        m_bus.registerVirtualObject(mprisPath, this);
        EXPECT_TRUE(m_bus.registerService(QStringLiteral("org.mpris.MediaPlayer2.") + m_name));
    }
    ~StandIn() override { QDBusConnection::disconnectFromBus(m_name); }
    QString introspect(const QString&) const override { return {}; }
    bool handleMessage(const QDBusMessage& message, const QDBusConnection& bus) override
    {
        const QVariant entry = QVariant::fromValue(QDBusVariant(QStringLiteral("vlc")));
        if (message.member() == u"GetAll" || message.member() == u"Get")
            bus.send(message.createReply(message.member() == u"Get" ? entry : QVariant(m_player)));
        return true;
    }

private:
    static inline int s_count = 0;
    const QString m_name = QStringLiteral("standin%1").arg(++s_count);
    const QVariantMap m_player;
    QDBusConnection m_bus = QDBusConnection::connectToBus(QDBusConnection::SessionBus, m_name);
};

} // namespace

class MprisTest : public ::testing::Test {
protected:
    Item now()
    {
        const QFuture<std::optional<Item>> item = source.current();
        EXPECT_TRUE(testing_support::await(item));
        return item.result().value_or(Item{});
    }
    bool shows(const QString& title)
    {
        return spinUntil([&] { return now().title == title; });
    }

    PulseAudio audio;
    MprisSource source{QDBusConnection::sessionBus(), audio};
};

TEST_F(MprisTest, FollowsThePlayerThatPlaysThenTheOneSendingSoundForgetsOneThatQuitsAndPausesIt)
{
    auto sounding = std::make_unique<Mpv>(QStringLiteral("A"), QStringLiteral("pulse"));
    const auto pid = quint32(sounding->process.processId());
    const auto& players = source.players().players();
    ASSERT_TRUE(spinUntil([&] {
        return audio.state().processIdsOutputting.contains(pid) &&
               std::any_of(players.begin(), players.end(),
                           [&](const auto& p) { return p.second.processId == pid; });
    }));
    Mpv later(QStringLiteral("B"), QStringLiteral("null"), {QStringLiteral("--pause")});
    const QString laterName =
        QStringLiteral("org.mpris.MediaPlayer2.mpv.instance%1").arg(later.process.processId());
    const auto laterPlayer = [&] {
        const auto player = players.find(laterName);
        return player == players.end() ? MprisPlayer{} : player->second;
    };
    // Paused, it is not followed however recent; playing, it still sends no sound here.
    ASSERT_TRUE(spinUntil([&] { return laterPlayer().paused; }));
    MprisSource startedLater(QDBusConnection::sessionBus(), audio); // finds both already there
    EXPECT_TRUE(spinUntil([&] { return startedLater.players().players().size() == 2; }));
    EXPECT_EQ(now().title, QStringLiteral("A"));
    QDBusConnection::sessionBus().call(QDBusMessage::createMethodCall(
        laterName, mprisPath, QStringLiteral("org.mpris.MediaPlayer2.Player"),
        QStringLiteral("Play")));
    ASSERT_TRUE(spinUntil([&] { return laterPlayer().item.playing; }));
    EXPECT_EQ(now().title, QStringLiteral("A"));
    EXPECT_EQ(now().desktopEntry, QStringLiteral("mpv"));
    sounding.reset();
    EXPECT_TRUE(shows(QStringLiteral("B")));
    source.send(MediaSource::Command::playPause);
    EXPECT_TRUE(spinUntil([&] { return !now().playing && now().title == u"B"; }));
}

TEST_F(MprisTest, TheMostRecentlyStartedOfTwoPlayingPlayersIsFollowed)
{
    std::map<QString, MprisPlayer> players;
    for (const quint64 started : {2, 1}) {
        MprisPlayer& player = players[QString::number(started)];
        player.item.playing = true;
        player.startedAt = started;
    }
    EXPECT_EQ(choosePlayer(players, {})->startedAt, 2u);
}

TEST_F(MprisTest, BadMetadataAndArtLeaveThePlaceholderAndTheOtherFields)
{
    QTemporaryDir folder;
    QImage image(8, 8, QImage::Format_RGB32);
    image.fill(Qt::red);
    ASSERT_TRUE(image.save(folder.filePath(QStringLiteral("art.png"))));
    // A picture that decodes, padded to 50 MB.
    const QString huge = folder.filePath(QStringLiteral("huge.png"));
    ASSERT_TRUE(QFile::copy(folder.filePath(QStringLiteral("art.png")), huge) &&
                QFile::resize(huge, 50 * 1024 * 1024));
    for (const QString& path : {folder.filePath(QStringLiteral("art.png")),
                                folder.filePath(QStringLiteral("missing.png")), folder.path(),
                                QStringLiteral("/dev/zero"), huge}) {
        const QString art = QUrl::fromLocalFile(path).toString();
        StandIn bad({{QStringLiteral("xesam:title"), 7},
                     {QStringLiteral("xesam:artist"), QStringList{QStringLiteral("Band")}},
                     {QStringLiteral("xesam:album"), QString(1 << 20, u'x')},
                     {QStringLiteral("mpris:artUrl"), art}});
        ASSERT_TRUE(spinUntil([&] { return now().artUrl == art; })) << art.toStdString();
        const Item item = now();
        EXPECT_EQ(item.artwork.has_value(), path.endsWith(u"/art.png")) << art.toStdString();
        EXPECT_EQ(item.title, QString());
        EXPECT_EQ(item.artist, QStringLiteral("Band"));
        EXPECT_EQ(item.album.size(), MprisPlayers::longestText);
    }
}

TEST_F(MprisTest,
       TheComputersMediaFillsThePanelWhileTheSpeakerPlaysItsLineInputThoughItsPlayerHangs)
{
    emulator::EmulatorThread players;
    // Its Lounge plays its line input.
    ASSERT_EQ(players.start(QStringLiteral(EMULATOR_HOUSEHOLDS "/stereo-pair.json")), std::nullopt);
    StandIn film({{QStringLiteral("xesam:title"), QStringLiteral("The Film")}});
    ASSERT_TRUE(shows(QStringLiteral("The Film")));
    LogWatch log;
    source.send(MediaSource::Command::next);
    SnapshotBuilder builder(source);
    SnapshotInputs in;
    in.speaker.connected = true;
    in.device =
        SonosDevice{QStringLiteral("127.0.0.11"), QStringLiteral("RINCON_B8E9374A1F0001400"),
                    QStringLiteral("Lounge"), QStringLiteral("Sonos Five")};
    const QFuture<PanelSnapshot> snapshot = builder.build(in);
    ASSERT_TRUE(testing_support::await(snapshot));
    EXPECT_TRUE(snapshot.result().isLineInput);
    EXPECT_EQ(snapshot.result().title, QStringLiteral("The Film"));
    EXPECT_EQ(snapshot.result().artworkBundleID, QStringLiteral("vlc"));
    EXPECT_TRUE(log.lines().filter(u"did not take Next").isEmpty());
    EXPECT_TRUE(spinUntil([&] { return !log.lines().filter(u"did not take Next").isEmpty(); }));
}
