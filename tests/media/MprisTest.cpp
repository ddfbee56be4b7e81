// The computer's media as real and stand-in MPRIS players publish it on a private session bus,
// with mpv sending sound to a private PulseAudio.
#include "app/SnapshotBuilder.h"
#include "audio/PulseAudio.h"
#include "common/LogWatch.h"
#include "common/Wait.h"
#include "emulator/Emulator.h"
#include "media/MprisSource.h"

#include <QDBusConnection>
#include <QDBusMessage>
#include <QDBusVariant>
#include <QDBusVirtualObject>
#include <QDataStream>
#include <QImage>
#include <QProcess>
#include <QTemporaryDir>
#include <QtEndian>

#include <gtest/gtest.h>

using testing_support::await;
using testing_support::spinUntil;
using Item = MediaSource::Item;

namespace {

const QString mprisPath = QStringLiteral("/org/mpris/MediaPlayer2");

// One second of silence as a WAV whose INFO chunk names its title and artist, as mpv reads them.
QString writeTune(const QString& folder, const QByteArray& title)
{
    const auto tag = [](const char* id, const QByteArray& text) {
        QByteArray value = text + '\0';
        QByteArray chunk(id);
        chunk += QByteArray(4, 0);
        qToLittleEndian<quint32>(quint32(value.size()), chunk.data() + 4);
        return chunk + value;
    };
    const QByteArray info = "INFO" + tag("INAM", title) + tag("IART", "An Artist");
    QByteArray wav;
    QDataStream out(&wav, QIODevice::WriteOnly);
    out.setByteOrder(QDataStream::LittleEndian);
    const quint32 samples = 8000;
    out.writeRawData("RIFF", 4);
    out << quint32(4 + 24 + 8 + info.size() + 8 + samples * 2);
    out.writeRawData("WAVEfmt ", 8);
    out << quint32(16) << quint16(1) << quint16(1) << quint32(8000) << quint32(16000) << quint16(2)
        << quint16(16);
    out.writeRawData("LIST", 4);
    out << quint32(info.size());
    out.writeRawData(info.constData(), int(info.size()));
    out.writeRawData("data", 4);
    out << quint32(samples * 2);
    out.writeRawData(QByteArray(samples * 2, 0).constData(), int(samples * 2));
    const QString path = folder + u'/' + QString::fromUtf8(title) + QStringLiteral(".wav");
    QFile file(path);
    EXPECT_TRUE(file.open(QIODevice::WriteOnly) && file.write(wav) == wav.size());
    return path;
}

// mpv playing the tune in a loop, publishing itself through its MPRIS script.
struct Mpv {
    explicit Mpv(const QString& tune, QStringList options)
    {
        process.start(QStringLiteral("mpv"),
                      QStringList{QStringLiteral("--no-config"),
                                  QStringLiteral("--script=/usr/lib/mpv-mpris/mpris.so"),
                                  QStringLiteral("--no-video"), QStringLiteral("--loop=inf"),
                                  QStringLiteral("--really-quiet")} +
                          options + QStringList{tune});
        EXPECT_TRUE(process.waitForStarted());
    }
    ~Mpv()
    {
        process.kill();
        process.waitForFinished();
    }
    QProcess process;
};

// A player on a connection of its own: it answers property reads with `player` and leaves every
// other call unanswered, as a hung player does.
class StandIn : public QDBusVirtualObject {
public:
    explicit StandIn(QVariantMap player)
        : m_player(std::move(player))
        , m_bus(QDBusConnection::connectToBus(QDBusConnection::SessionBus, m_name))
    {
        m_bus.registerVirtualObject(mprisPath, this);
        EXPECT_TRUE(m_bus.registerService(QStringLiteral("org.mpris.MediaPlayer2.") + m_name));
    }
    ~StandIn() override
    {
        m_bus.unregisterObject(mprisPath);
        QDBusConnection::disconnectFromBus(m_name);
    }
    QString introspect(const QString&) const override { return {}; }
    bool handleMessage(const QDBusMessage& message, const QDBusConnection& bus) override
    {
        if (message.member() == u"GetAll")
            bus.send(message.createReply(m_player));
        else if (message.member() == u"Get")
            bus.send(message.createReply(QVariant::fromValue(QDBusVariant(QStringLiteral("vlc")))));
        return true;
    }

private:
    static inline int s_count = 0;
    const QString m_name = QStringLiteral("standin%1").arg(++s_count);
    const QVariantMap m_player;
    QDBusConnection m_bus;
};

QVariantMap playing(const QVariantMap& metadata)
{
    return {{QStringLiteral("PlaybackStatus"), QStringLiteral("Playing")},
            {QStringLiteral("Metadata"), metadata}};
}

} // namespace

class MprisTest : public ::testing::Test {
protected:
    std::optional<Item> now()
    {
        const QFuture<std::optional<Item>> item = source.current();
        EXPECT_TRUE(await(item));
        return item.result();
    }
    bool shows(const QString& title)
    {
        return spinUntil([&] { return now().value_or(Item{}).title == title; });
    }

    QTemporaryDir folder;
    const QString tune = writeTune(folder.path(), "A Title");
    PulseAudio audio;
    MprisSource source{QDBusConnection::sessionBus(), audio};
};

TEST_F(MprisTest, ShowsWhatMpvPlaysAndPausesIt)
{
    Mpv mpv(tune, {QStringLiteral("--ao=null")});
    ASSERT_TRUE(shows(QStringLiteral("A Title")));
    EXPECT_EQ(now()->artist, QStringLiteral("An Artist"));
    EXPECT_TRUE(now()->playing);
    source.send(MediaSource::Command::playPause);
    EXPECT_TRUE(spinUntil([&] { return now() && !now()->playing; }));
}

TEST_F(MprisTest, FollowsThePlayerThatPlaysThenTheOneSendingSoundAndForgetsOneThatQuits)
{
    auto sounding = std::make_unique<Mpv>(writeTune(folder.path(), "A"),
                                          QStringList{QStringLiteral("--ao=pulse")});
    const auto pid = quint32(sounding->process.processId());
    ASSERT_TRUE(spinUntil([&] {
        const auto& players = source.players().players();
        return audio.state().processIdsOutputting.contains(pid) &&
               std::any_of(players.begin(), players.end(),
                           [&](const auto& p) { return p.second.processId == pid; });
    }));
    Mpv later(writeTune(folder.path(), "B"),
              {QStringLiteral("--ao=null"), QStringLiteral("--pause")});
    const QString laterName =
        QStringLiteral("org.mpris.MediaPlayer2.mpv.instance%1").arg(later.process.processId());
    const auto laterPlayer = [&] {
        const auto& players = source.players().players();
        const auto player = players.find(laterName);
        return player == players.end() ? MprisPlayer{} : player->second;
    };
    // Paused, it is not followed however recent; playing, it still sends no sound here.
    ASSERT_TRUE(spinUntil([&] { return laterPlayer().paused; }));
    EXPECT_EQ(now()->title, QStringLiteral("A"));
    QDBusConnection::sessionBus().call(QDBusMessage::createMethodCall(
        laterName, mprisPath, QStringLiteral("org.mpris.MediaPlayer2.Player"),
        QStringLiteral("Play")));
    ASSERT_TRUE(spinUntil([&] { return laterPlayer().item.playing; }));
    EXPECT_EQ(now()->title, QStringLiteral("A"));
    sounding.reset();
    EXPECT_TRUE(shows(QStringLiteral("B")));
}

TEST_F(MprisTest, TheMostRecentlyStartedOfTwoPlayingPlayersIsFollowed)
{
    std::map<QString, MprisPlayer> players;
    players[QStringLiteral("a")].item.playing = true;
    players[QStringLiteral("a")].startedAt = 2;
    players[QStringLiteral("b")].item.playing = true;
    players[QStringLiteral("b")].startedAt = 1;
    EXPECT_EQ(choosePlayer(players, {}), &players[QStringLiteral("a")]);
}

TEST_F(MprisTest, APlayerThatNeverAnswersACommandHoldsNothingUp)
{
    StandIn hung(playing({{QStringLiteral("xesam:title"), QStringLiteral("Hung")}}));
    ASSERT_TRUE(shows(QStringLiteral("Hung")));
    LogWatch log;
    source.send(MediaSource::Command::next);
    EXPECT_TRUE(source.current().isFinished());
    EXPECT_TRUE(spinUntil(
        [&] { return !log.lines().filter(QStringLiteral("did not take Next")).isEmpty(); }));
}

TEST_F(MprisTest, BadMetadataAndArtLeaveThePlaceholderAndTheOtherFields)
{
    QImage image(8, 8, QImage::Format_RGB32);
    image.fill(Qt::red);
    ASSERT_TRUE(image.save(folder.filePath(QStringLiteral("art.png"))));
    QFile huge(folder.filePath(QStringLiteral("huge.png")));
    ASSERT_TRUE(huge.open(QIODevice::WriteOnly) && huge.resize(50 * 1024 * 1024));
    const auto artAt = [](const QString& path) { return QUrl::fromLocalFile(path).toString(); };
    for (const QString& art :
         {artAt(folder.filePath(QStringLiteral("art.png"))),
          artAt(folder.filePath(QStringLiteral("missing.png"))), artAt(folder.path()),
          artAt(QStringLiteral("/dev/zero")), artAt(huge.fileName())}) {
        StandIn bad(playing({{QStringLiteral("xesam:title"), 7},
                             {QStringLiteral("xesam:artist"), QStringLiteral("Band")},
                             {QStringLiteral("xesam:album"), QString(1 << 20, u'x')},
                             {QStringLiteral("mpris:artUrl"), art}}));
        ASSERT_TRUE(spinUntil([&] { return now().value_or(Item{}).artUrl == art; }))
            << art.toStdString();
        const Item item = *now();
        EXPECT_EQ(item.artwork.has_value(), art.endsWith(u"/art.png")) << art.toStdString();
        EXPECT_EQ(item.title, QString());
        EXPECT_EQ(item.artist, QStringLiteral("Band"));
        EXPECT_EQ(item.album.size(), MprisPlayers::longestText);
        EXPECT_EQ(item.desktopEntry, QStringLiteral("vlc"));
    }
}

TEST_F(MprisTest, TheComputersMediaFillsThePanelWhileTheSpeakerPlaysItsLineInput)
{
    emulator::EmulatorThread players;
    ASSERT_EQ(players.startJson(R"({"household": "Sonos_Media_Test", "players": [
        {"host": "127.0.0.12", "uid": "RINCON_000E58C0A2B201400", "room": "Den",
         "model": "Sonos Five", "transport": "PLAYING",
         "track": {"uri": "x-rincon-stream:RINCON_000E58C0A2B201400", "title": "Line-In"}}]})",
                                1400, true),
              std::nullopt);
    StandIn film(playing({{QStringLiteral("xesam:title"), QStringLiteral("The Film")}}));
    ASSERT_TRUE(shows(QStringLiteral("The Film")));
    SnapshotBuilder builder(source);
    SnapshotInputs in;
    in.speaker.connected = true;
    in.device =
        SonosDevice{QStringLiteral("127.0.0.12"), QStringLiteral("RINCON_000E58C0A2B201400"),
                    QStringLiteral("Den"), QStringLiteral("Sonos Five")};
    const QFuture<PanelSnapshot> snapshot = builder.build(in);
    ASSERT_TRUE(await(snapshot));
    EXPECT_TRUE(snapshot.result().isLineInput);
    EXPECT_EQ(snapshot.result().title, QStringLiteral("The Film"));
    EXPECT_EQ(snapshot.result().artworkBundleID, QStringLiteral("vlc"));
}
