// The capped reader and the answer readings over real sockets, against scripted players that
// say exactly what each case needs. Runs in a private network namespace (port 1400 is free).
#include "Results.h"
#include "ScriptedPlayer.h"
#include "common/LogWatch.h"
#include "sonos/CappedReader.h"
#include "sonos/SonosDevice.h"
#include "support/Log.h"

#include <QCoreApplication>
#include <QThread>

#include <gtest/gtest.h>

#include <functional>
#include <optional>

using namespace speaker_testing;
using namespace std::chrono_literals;

namespace {

const QString playerHost = QStringLiteral("127.0.0.31");

SonosDevice scriptedDevice()
{
    return SonosDevice{playerHost, QStringLiteral("RINCON_000E58A0B1C201400"),
                       QStringLiteral("Scripted"), QStringLiteral("Sonos One")};
}

QNetworkRequest requestTo(const QString& host, const QString& path = QStringLiteral("/x"))
{
    return QNetworkRequest(*SonosDevice::url(host, path));
}

class ScriptedAnswers : public ::testing::Test {
protected:
    void SetUp() override { ASSERT_TRUE(player.isListening()); }

    ScriptedPlayer player{playerHost};
    SonosDevice device = scriptedDevice();
};

TEST_F(ScriptedAnswers, VolumeIsASignedDecimalInTheExactCurrentVolumeTag)
{
    const std::pair<QByteArray, std::optional<int>> cases[] = {
        {"<CurrentVolume>-3</CurrentVolume>", -3},                   // not clamped on reading
        {"<CurrentVolume>140</CurrentVolume>", 140},                 // nor here
        {"<CurrentVolume>4294967296</CurrentVolume>", std::nullopt}, // beyond an int
        {"", std::nullopt},
    };
    for (const auto& [inner, expected] : cases) {
        SCOPED_TRACE(inner.toStdString());
        player.setSoapAnswer("<u:GetVolumeResponse>" + inner + "</u:GetVolumeResponse>");
        const SonosResult<int> single = settle(device.volume());
        player.setSoapAnswer("<u:GetGroupVolumeResponse>" + inner + "</u:GetGroupVolumeResponse>");
        const SonosResult<int> group = settle(device.groupVolume());
        for (const SonosResult<int>& result : {single, group}) {
            if (expected) {
                ASSERT_TRUE(result) << describe(result.error()).toStdString();
                EXPECT_EQ(*result, *expected);
            } else {
                EXPECT_EQ(errorOf(result), badResponse());
            }
        }
    }
}

// Mute and transport state read as off when the element is missing; an EQ setting that is
// missing is an error, because the player has no such setting.
TEST_F(ScriptedAnswers, FlagsReadTrueOnlyForTheExactWord)
{
    struct Case {
        std::function<QFuture<SonosResult<bool>>(const SonosDevice&)> ask;
        QByteArray tag;
        QByteArray onWord;
        bool missingIsError;
    };
    const Case operations[] = {
        {&SonosDevice::isMuted, "CurrentMute", "1", false},
        {&SonosDevice::isGroupMuted, "CurrentMute", "1", false},
        {[](const SonosDevice& d) { return d.eqBool(QStringLiteral("NightMode")); }, "CurrentValue",
         "1", true},
        {&SonosDevice::isPlaying, "CurrentTransportState", "PLAYING", false},
    };
    for (const Case& op : operations) {
        SCOPED_TRACE(op.tag.toStdString());
        const auto answer = [&](const QByteArray& inner) {
            player.setSoapAnswer("<u:Response>" + inner + "</u:Response>");
            return settle(op.ask(device));
        };
        const QByteArray open = "<" + op.tag + ">";
        const QByteArray close = "</" + op.tag + ">";

        const SonosResult<bool> on = answer(open + op.onWord + close);
        ASSERT_TRUE(on);
        EXPECT_TRUE(*on);
        for (const QByteArray& word :
             {QByteArray("0"), QByteArray(""), QByteArray(" 1"), QByteArray("true"),
              QByteArray("playing"), QByteArray("PAUSED_PLAYBACK"), op.onWord + " "}) {
            SCOPED_TRACE(word.toStdString());
            const SonosResult<bool> off = answer(open + word + close);
            ASSERT_TRUE(off);
            EXPECT_FALSE(*off);
        }

        const SonosResult<bool> absent = answer("");
        if (op.missingIsError) {
            EXPECT_EQ(errorOf(absent), badResponse());
        } else {
            ASSERT_TRUE(absent);
            EXPECT_FALSE(*absent);
        }
    }
}

// Every element of the track is optional; an answer without them is an empty track.
TEST_F(ScriptedAnswers, NowPlayingOfAnAnswerWithoutElementsIsEmpty)
{
    player.setSoapAnswer("<u:GetPositionInfoResponse/>");
    const SonosResult<SonosDevice::NowPlaying> idle = settle(device.nowPlaying());
    ASSERT_TRUE(idle);
    EXPECT_EQ(*idle, SonosDevice::NowPlaying{});
}

TEST_F(ScriptedAnswers, StatusOtherThan200IsAnHttpErrorAndNonHttpIsMinusOne)
{
    const std::pair<QByteArray, std::optional<SpeakerError>> cases[] = {
        {"HTTP/1.1 500 Internal Server Error\r\nContent-Length: 0\r\nConnection: close\r\n\r\n",
         http(500)},
        {"HTTP/1.1 204 No Content\r\nConnection: close\r\n\r\n", http(204)},
        {"HTTP/1.1 302 Found\r\nLocation: http://127.0.0.32:1400/x\r\nContent-Length: "
         "0\r\nConnection: close\r\n\r\n",
         http(302)},
        {"SSH-2.0-OpenSSH_9.2\r\nnot a web server at all\r\n", http(-1)},
        {"\x16\x03\x01\x02\x00\x01\x00\x01\xfc\x03\x03garbage", http(-1)},
    };
    for (const auto& [reply, expected] : cases) {
        SCOPED_TRACE(reply.left(20).toStdString());
        player.setReply(reply);
        EXPECT_EQ(errorOf(settle(device.setMute(true))), expected);
    }
    // No answer at all, the connection closed.
    player.setSilent(true);
    EXPECT_EQ(errorOf(settle(device.setMute(true))), http(-1));
}

TEST_F(ScriptedAnswers, AConnectionClosedMidAnswerIsATransportError)
{
    player.setReply(
        "HTTP/1.1 200 OK\r\nContent-Length: 100\r\n\r\n<CurrentVolume>5</CurrentVolume>");
    EXPECT_EQ(transportCodeOf(settle(device.volume())), QNetworkReply::RemoteHostClosedError);
}

// A body right at the cap is read; one byte more is refused and logged, however the length
// is announced.
TEST_F(ScriptedAnswers, BodiesAreCappedAt512KiB)
{
    const QByteArray atCap(CappedReader::cap, 'a');
    player.setBody(atCap);
    const SonosResult<CappedReader::Response> accepted =
        settle(CappedReader::read(requestTo(playerHost)));
    ASSERT_TRUE(accepted);
    EXPECT_EQ(accepted->status, 200);
    EXPECT_EQ(accepted->body, atCap);

    const QByteArray overCap(CappedReader::cap + 1, 'b');
    const QByteArray line = "response from 127.0.0.31 exceeded 524288 bytes; refusing it";
    for (const QByteArray& reply :
         {"HTTP/1.1 200 OK\r\nContent-Length: 524289\r\nConnection: close\r\n\r\n" + overCap,
          "HTTP/1.1 200 OK\r\nConnection: close\r\n\r\n" + overCap,
          "HTTP/1.1 200 OK\r\nConnection: close\r\n\r\n" + overCap + overCap + overCap}) {
        player.setReply(reply);
        EXPECT_EQ(errorOf(settle(CappedReader::read(requestTo(playerHost)))), badResponse());
        Log::flush();
        const QString tail = Log::tail(2);
        EXPECT_TRUE(tail.endsWith(QString::fromUtf8(line + "\n"))) << tail.toStdString();
    }
    // The refusal applies to SOAP answers alike.
    player.setBody("<CurrentVolume>25</CurrentVolume>" + overCap);
    EXPECT_EQ(errorOf(settle(device.volume())), badResponse());
}

// Each limit is told apart by an outcome, never by the clock: the other limit is set far
// beyond anything the test waits for, and a trickle's bytes come many times more often than
// its request time-out, however busy the machine is.
TEST_F(ScriptedAnswers, AnswersThatStallTimeOut)
{
    // Nothing at all within the request time-out.
    player.setSilent();
    const SonosResult<CappedReader::Response> silent =
        settle(CappedReader::read(requestTo(playerHost), {}, {300ms, 1h}));
    EXPECT_EQ(transportCodeOf(silent), QNetworkReply::TimeoutError);
    EXPECT_EQ(std::get<TransportError>(silent.error()).text, CappedReader::timedOutText());

    // Steady progress, but the whole answer (30 bytes, one each 100 ms) takes longer than
    // the resource time-out.
    const QByteArray body(30, 'x');
    player.setReply("HTTP/1.1 200 OK\r\nContent-Length: 30\r\n\r\n" + body, 100ms);
    const SonosResult<CappedReader::Response> trickle =
        settle(CappedReader::read(requestTo(playerHost), {}, {1h, 500ms}));
    EXPECT_EQ(transportCodeOf(trickle), QNetworkReply::TimeoutError);

    // The same trickle arrives whole when only the request time-out applies, though it
    // lasts twice as long: that limit counts from the last progress.
    const SonosResult<CappedReader::Response> patient =
        settle(CappedReader::read(requestTo(playerHost), {}, {1500ms, 1h}));
    ASSERT_TRUE(patient) << describe(patient.error()).toStdString();
    EXPECT_EQ(patient->body, body);
}

// A player that streams a status line or header section without end is refused at the
// header cap, or at the time-out when it drips, and the connection is closed then: nothing
// goes on reading it after the answer is given up.
TEST_F(ScriptedAnswers, EndlessHeadsAreRefusedAndTheirConnectionsClosed)
{
    LogWatch log;
    for (const auto& [start, more] : {std::pair<QByteArray, QByteArray>{"HTTP/1.1 200 O", "K"},
                                      {"HTTP/1.1 200 OK\r\n", "X-Pad: padding\r\n"}}) {
        player.setEndless(start, more.repeated(1024));
        EXPECT_EQ(errorOf(settle(CappedReader::read(requestTo(playerHost)))), badResponse());
        EXPECT_TRUE(testing_support::spinUntil([&] { return player.openConnections() == 0; }));
    }
    EXPECT_EQ(log.count(QStringLiteral(
                  "response header from 127.0.0.31 exceeded 16384 bytes; refusing it")),
              2);

    player.setEndless("HTTP/1.1 200 OK\r\n", "X-Pad: padding\r\n", 20ms);
    EXPECT_EQ(transportCodeOf(settle(CappedReader::read(requestTo(playerHost), {}, {1h, 500ms}))),
              QNetworkReply::TimeoutError);
    EXPECT_TRUE(testing_support::spinUntil([&] { return player.openConnections() == 0; }));
}

TEST_F(ScriptedAnswers, EveryReadReachesThePlayerWithoutCacheOrCookies)
{
    player.setBody("<a>1</a>", 200,
                   "Cache-Control: max-age=3600\r\nSet-Cookie: session=abc; Path=/\r\n"
                   "ETag: \"v1\"\r\n");
    for (int i = 0; i < 3; ++i)
        ASSERT_TRUE(succeeded(settle(CappedReader::read(requestTo(playerHost)))));
    ASSERT_EQ(player.requests().size(), 3);
    for (const QByteArray& request : player.requests()) {
        const QByteArray lower = request.toLower();
        EXPECT_TRUE(request.startsWith("GET /x HTTP/1.1\r\n")) << request.toStdString();
        EXPECT_FALSE(lower.contains("\r\ncookie:")) << request.toStdString();
        EXPECT_FALSE(lower.contains("if-none-match")) << request.toStdString();
    }
}

TEST(Reader, AnUnformableAddressFailsWithoutARequest)
{
    const SonosDevice broken{QStringLiteral("not a host"), {}, {}, {}};
    const QFuture<SonosResult<Done>> future = broken.setVolume(10);
    EXPECT_TRUE(future.isFinished());
    EXPECT_EQ(errorOf(settle(future)), badResponse());
}

// A worker thread with an event loop gets a client of its own, answers arrive on that
// thread, and the client goes away with the thread.
TEST(Reader, WorksOnAnyThreadWithAnEventLoop)
{
    ScriptedPlayer player(playerHost);
    ASSERT_TRUE(player.isListening());
    // The player lives on the test's thread, which must keep turning meanwhile.
    player.setBody("<CurrentVolume>33</CurrentVolume>");

    QThread worker;
    worker.start();
    QObject context;
    context.moveToThread(&worker);
    std::atomic<int> answered{0};
    std::atomic<bool> onWorker{false};
    std::atomic<int> volume{-1};
    QMetaObject::invokeMethod(&context, [&] {
        for (int i = 0; i < 3; ++i) {
            scriptedDevice().volume().then(&context, [&](const SonosResult<int>& result) {
                onWorker = QThread::currentThread() == &worker;
                volume = result.valueOr(-1);
                ++answered;
            });
        }
    });
    EXPECT_TRUE(testing_support::spinUntil([&] { return answered == 3; }));
    EXPECT_TRUE(onWorker);
    EXPECT_EQ(volume, 33);
    QMetaObject::invokeMethod(
        &context, [&] { context.moveToThread(qApp->thread()); }, Qt::BlockingQueuedConnection);
    worker.quit();
    worker.wait();
}

} // namespace
