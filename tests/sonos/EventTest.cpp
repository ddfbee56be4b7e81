// Event subscriptions and their callback against the household emulator over real sockets,
// and the callback's refusals of what a player never sends. Runs in a private network
// namespace, where the players own 127.0.0.1x:1400.
#include "Results.h"
#include "common/LogWatch.h"
#include "emulator/Emulator.h"
#include "sonos/EventListener.h"
#include "sonos/EventSubscription.h"
#include "sonos/Tags.h"

#include <QTcpSocket>
#include <QThread>

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <memory>

using namespace speaker_testing;
using namespace std::chrono_literals;
using testing_support::spinFor;
using testing_support::spinUntil;

namespace {

const QString arcHost = QStringLiteral("127.0.0.11");
const QString renderingEvents = QStringLiteral("/MediaRenderer/RenderingControl/Event");

const QByteArray household = R"({
  "household": "Sonos_Event_Test_Household",
  "players": [
    {"host": "127.0.0.11", "uid": "RINCON_000E58A0B1C201400", "room": "Living & Dining",
     "model": "Sonos Arc"},
    {"host": "127.0.0.12", "uid": "RINCON_000E58A0B1C301400", "room": "Kitchen",
     "model": "Sonos One"}
  ]
})";

class EventTest : public ::testing::Test {
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
                           QStringLiteral("Sonos Arc")};
    }

    static QStringList methods(const QString& host = arcHost)
    {
        QStringList names;
        for (const emulator::Request& request : (*players)->requests(host))
            if (request.action.isEmpty())
                names << QString::fromLatin1(request.method + ' ' + request.path);
        return names;
    }

    // A live subscription to the living room's rendering, with what it was told.
    struct Subscribed {
        std::unique_ptr<EventSubscription> subscription;
        std::shared_ptr<QList<QByteArray>> bodies = std::make_shared<QList<QByteArray>>();
    };
    static Subscribed subscribe(std::chrono::seconds requested = 1800s)
    {
        Subscribed made;
        made.subscription =
            std::make_unique<EventSubscription>(device(), renderingEvents, requested);
        QObject::connect(made.subscription.get(), &EventSubscription::notified,
                         [bodies = made.bodies](const QByteArray& body) { bodies->append(body); });
        made.subscription->start();
        EXPECT_TRUE(spinUntil([&] { return made.bodies->size() == 1; }));
        return made;
    }

    static inline std::unique_ptr<emulator::EmulatorThread> players;
};

// A request to this thread's callback from `from`, as raw bytes; answers the status line, or
// what happened instead. The socket writes while the listener on this thread reads.
QByteArray sendToCallback(const QString& from, const QByteArray& bytes)
{
    const std::shared_ptr<EventListener> listener = EventListener::forPlayer(arcHost);
    const QUrl callback(listener->callbackUrl());
    QTcpSocket socket;
    socket.bind(QHostAddress(from));
    socket.connectToHost(callback.host(), quint16(callback.port()));
    socket.write(bytes);
    QByteArray answer;
    QObject::connect(&socket, &QTcpSocket::readyRead, [&] { answer += socket.readAll(); });
    spinUntil(
        [&] { return answer.contains("\r\n") || socket.state() == QTcpSocket::UnconnectedState; },
        10s);
    return answer.left(answer.indexOf("\r\n"));
}

QByteArray notify(const QString& sid, quint32 seq, const QByteArray& body)
{
    return "NOTIFY /events HTTP/1.1\r\nHOST: 127.0.0.1\r\nNT: upnp:event\r\n"
           "NTS: upnp:propchange\r\nSID: " +
           sid.toUtf8() + "\r\nSEQ: " + QByteArray::number(seq) +
           "\r\nContent-Length: " + QByteArray::number(body.size()) + "\r\n\r\n" + body;
}

const QByteArray propertySet =
    "<e:propertyset xmlns:e=\"urn:schemas-upnp-org:event-1-0\"><e:property><LastChange>"
    "&lt;Event/&gt;</LastChange></e:property></e:propertyset>";

TEST_F(EventTest, FirstEventPropertyAnswersTheEscapedTextAndUnsubscribes)
{
    const QFuture<std::optional<QString>> topology = firstEventProperty(
        device(), QStringLiteral("/ZoneGroupTopology/Event"), QStringLiteral("ZoneGroupState"), 5s);
    ASSERT_TRUE(testing_support::await(topology));
    ASSERT_TRUE(topology.result().has_value());
    // Still escaped as the body carries it: the room's "&" stands as "&amp;amp;" or "&amp;".
    EXPECT_TRUE(topology.result()->contains(QStringLiteral("&lt;ZoneGroup")));
    EXPECT_TRUE(topology.result()->contains(QStringLiteral("Living &amp;")));
    ASSERT_TRUE(spinUntil([] { return methods().size() == 2; }));
    EXPECT_EQ(methods(), (QStringList{"SUBSCRIBE /ZoneGroupTopology/Event",
                                      "UNSUBSCRIBE /ZoneGroupTopology/Event"}));
}

} // namespace

// The discovery may ask from a thread of its own: the answer comes on that thread.
TEST_F(EventTest, FirstEventPropertyAnswersOnTheThreadThatAsked)
{
    QThread worker;
    QObject context;
    context.moveToThread(&worker);
    worker.start();
    std::atomic<QThread*> answeredOn = nullptr;
    std::atomic<bool> answered = false;
    QMetaObject::invokeMethod(&context, [&] {
        firstEventProperty(device(), renderingEvents, QStringLiteral("LastChange"), 5s)
            .then([&](const std::optional<QString>& text) {
                answeredOn = QThread::currentThread();
                answered = text.has_value();
            });
    });
    EXPECT_TRUE(spinUntil([&] { return answeredOn != nullptr; }));
    EXPECT_TRUE(answered);
    EXPECT_EQ(answeredOn, &worker);
    EXPECT_TRUE(spinUntil([] { return methods().size() == 2; }));
    worker.quit();
    worker.wait();
}

TEST_F(EventTest, AChangeArrivesAndTheSubscriptionIsRenewedByItsSid)
{
    const Subscribed live = subscribe(2s);
    (*players)->setVolume(arcHost, 23);
    ASSERT_TRUE(spinUntil([&] { return live.bodies->size() == 2; }));
    EXPECT_TRUE(live.bodies->last().contains("Volume channel=&quot;Master&quot; val=&quot;23"));
    // Granted two seconds, it is renewed within one and keeps its SID.
    const QString sid = live.subscription->sid();
    ASSERT_TRUE(spinUntil(
        [&] {
            const QList<emulator::Request> sent = (*players)->requests(arcHost);
            return std::any_of(sent.cbegin(), sent.cend(), [&](const emulator::Request& r) {
                return r.method == "SUBSCRIBE" && r.header("SID") == sid.toUtf8();
            });
        },
        3s));
    // Past the first grant, changes still come.
    spinFor(1500ms);
    (*players)->setVolume(arcHost, 24);
    ASSERT_TRUE(spinUntil([&] { return live.bodies->size() == 3; }));
    EXPECT_EQ(live.subscription->sid(), sid);
}

TEST_F(EventTest, AGapInTheSequenceSubscribesAfresh)
{
    const Subscribed live = subscribe();
    const QString sid = live.subscription->sid();
    (*players)->clearRequests();
    EXPECT_EQ(sendToCallback(arcHost, notify(sid, 5, propertySet)), "HTTP/1.1 200 OK");
    ASSERT_TRUE(spinUntil([&] { return live.bodies->size() == 3; }));
    EXPECT_NE(live.subscription->sid(), sid);
    EXPECT_EQ(methods(),
              (QStringList{"UNSUBSCRIBE " + renderingEvents, "SUBSCRIBE " + renderingEvents}));
}

// What a player never sends is refused with one log line and reaches no subscriber.
TEST_F(EventTest, RefusesWhatThePlayerNeverSends)
{
    const Subscribed live = subscribe();
    const QString sid = live.subscription->sid();
    const QByteArray head = "NOTIFY /events HTTP/1.1\r\nNT: upnp:event\r\n"
                            "NTS: upnp:propchange\r\nSEQ: 1\r\nSID: " +
                            sid.toUtf8() + "\r\n";
    const struct {
        QString from;
        QByteArray bytes;
        QByteArray status;
    } cases[] = {
        {QStringLiteral("127.0.0.99"), notify(sid, 1, propertySet),
         "HTTP/1.1 412 Precondition Failed"},
        {arcHost, notify("uuid:RINCON_unknown", 0, propertySet),
         "HTTP/1.1 412 Precondition Failed"},
        {arcHost, notify(sid, 1, "<e:propertyset><LastChange>&lt;Ev"), "HTTP/1.1 400 Bad Request"},
        {arcHost, head + "Content-Length: 10485760\r\n\r\n", "HTTP/1.1 413 Content Too Large"},
        {arcHost, head + "X: " + QByteArray(20000, 'x'), "HTTP/1.1 400 Bad Request"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.bytes.left(120).toStdString());
        const LogWatch log;
        EXPECT_EQ(sendToCallback(c.from, c.bytes), c.status);
        EXPECT_EQ(log.lines().size(), 1) << log.lines().join('\n').toStdString();
    }
    spinFor(100ms);
    EXPECT_EQ(live.bodies->size(), 1);
}

TEST_F(EventTest, ABodyThatNeverEndsIsCutOffWhileOthersGetThrough)
{
    const Subscribed live = subscribe();
    const std::shared_ptr<EventListener> listener = EventListener::forPlayer(arcHost);
    const QUrl callback(listener->callbackUrl());
    QTcpSocket stalled;
    stalled.bind(QHostAddress(arcHost));
    stalled.connectToHost(callback.host(), quint16(callback.port()));
    stalled.write(notify(live.subscription->sid(), 1, propertySet).chopped(10));
    ASSERT_TRUE(spinUntil([&] { return stalled.bytesToWrite() == 0; }));

    (*players)->setVolume(arcHost, 31);
    ASSERT_TRUE(spinUntil([&] { return live.bodies->size() == 2; }, 2s));
    const LogWatch log;
    EXPECT_TRUE(spinUntil([&] { return stalled.state() == QTcpSocket::UnconnectedState; },
                          std::chrono::milliseconds(EventListener::wholeRequestMs) + 5s));
    EXPECT_EQ(log.lines(), QStringList{"Event from 127.0.0.11 refused: not complete in time"});
    EXPECT_EQ(live.bodies->size(), 2);
}
