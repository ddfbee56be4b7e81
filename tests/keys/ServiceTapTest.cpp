#include "TapRecorder.h"
#include "common/LogWatch.h"
#include "common/Wait.h"
#include "keys/DismissMonitor.h"
#include "keys/EventTap.h"
#include "keyservice/Protocol.h"

#include <QLocalServer>
#include <QLocalSocket>
#include <QPointer>
#include <QTemporaryDir>

#include <gtest/gtest.h>

#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

using keyd::ClientMessage;
using testing_support::spinFor;
using testing_support::spinUntil;
using namespace std::chrono_literals;
using Key = TapRecorder::Key;
using MediaKey = EventTap::MediaKey;

namespace {

QByteArray bytesOf(const keyd::ServiceMessage& message)
{
    const keyd::Record record = keyd::encode(message);
    return QByteArray(reinterpret_cast<const char*>(record.data()), qsizetype(record.size()));
}

// The tap against a stand-in for velotide-keyd on a real socket, which greets each client
// with `hello` (and a health of one keyboard when accepted), keeps what the client sends, and
// sends what the test tells it. The real service has no way to refuse root, or to speak
// another version.
class ServiceTapTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        QObject::connect(&server, &QLocalServer::newConnection, [this] { accept(); });
        ASSERT_TRUE(server.listen(path()));
    }

    QString path() const { return dir.filePath(QStringLiteral("keyd.sock")); }
    std::unique_ptr<EventTap> installedTap()
    {
        auto tap = EventTap::create(recorder.callbacks(), EventTap::Options{path()});
        EXPECT_TRUE(tap->install());
        return tap;
    }
    bool waitForHealth(std::pair<bool, bool> wanted)
    {
        return spinUntil([&] { return recorder.lastHealth() == wanted; });
    }

    void accept()
    {
        while (QLocalSocket* next = server.nextPendingConnection()) {
            dropClient();
            client = next;
            ++connections;
            QObject::connect(next, &QLocalSocket::readyRead, next, [this, next] {
                for (keyd::Record record; next->bytesAvailable() >= qint64(record.size());) {
                    next->read(reinterpret_cast<char*>(record.data()), qint64(record.size()));
                    received.push_back(keyd::decodeClientMessage(record).value());
                }
            });
            send(bytesOf(hello));
            if (hello == keyd::Hello{})
                send(bytesOf(keyd::Health{1}));
            else
                next->disconnectFromServer();
        }
    }
    void send(const QByteArray& bytes)
    {
        client->write(bytes);
        client->flush();
    }
    void dropClient()
    {
        if (client) {
            client->abort();
            client->deleteLater();
        }
    }

    QTemporaryDir dir;
    QLocalServer server;
    QPointer<QLocalSocket> client;
    keyd::Hello hello;
    int connections = 0;
    std::vector<ClientMessage> received;
    TapRecorder recorder;
    LogWatch log;
};

TEST_F(ServiceTapTest, anAcceptedClientPushesItsArmingAndTakesReportsAndPointerButtons)
{
    recorder.armedAnswer = true;
    auto tap = installedTap();
    ASSERT_TRUE(waitForHealth({true, true}));
    ASSERT_TRUE(spinUntil([&] { return received.size() == 1; }));
    EXPECT_EQ(received[0], ClientMessage(keyd::SetArmed{true}));
    tap->reevaluate();
    spinFor(100ms);
    EXPECT_EQ(received.size(), 1u) << "an unchanged answer is not sent again";
    recorder.armedAnswer = false;
    tap->reevaluate();
    ASSERT_TRUE(spinUntil([&] { return received.size() == 2; }));
    EXPECT_EQ(received[1], ClientMessage(keyd::SetArmed{false}));

    {
        SCOPED_TRACE("key reports survive any split of the stream; unknown records are skipped");
        const QByteArray stream = bytesOf(keyd::KeyReport{keyd::MediaKey::soundUp}) +
                                  QByteArray("\x7f\x01\x02\x03\x04\x05\x06\x07", 8) +
                                  bytesOf(keyd::KeyReport{keyd::MediaKey::soundDown, true, true}) +
                                  bytesOf(keyd::KeyReport{keyd::MediaKey::mute});
        for (qsizetype at = 0; at < stream.size(); at += 3) {
            send(stream.mid(at, 3));
            spinFor(5ms);
        }
        ASSERT_TRUE(spinUntil([&] { return recorder.keys.size() >= 3; }));
        spinFor(50ms);
        EXPECT_EQ(recorder.keys, (std::vector<Key>{{MediaKey::soundUp, false, false},
                                                   {MediaKey::soundDown, true, true},
                                                   {MediaKey::mute, false, false}}));
    }
    {
        SCOPED_TRACE("the click monitor takes the service's pointer buttons without X11");
        int clicks = 0;
        DismissMonitor monitor;
        QObject::connect(&monitor, &DismissMonitor::clicked, [&] { ++clicks; });
        monitor.start();
        EXPECT_FALSE(monitor.isRunning()) << "no source yet";
        monitor.setKeyServiceTap(tap.get());
        monitor.start();
        monitor.start();
        ASSERT_TRUE(monitor.isRunning());
        ASSERT_TRUE(spinUntil([&] { return received.size() >= 3; }));
        spinFor(50ms);
        EXPECT_EQ(received.size(), 3u) << "asked for once";
        EXPECT_EQ(received[2], ClientMessage(keyd::SetPointerButtons{true}));
        send(bytesOf(keyd::PointerButton{0x110}) + bytesOf(keyd::KeyReport{keyd::MediaKey::mute}) +
             bytesOf(keyd::PointerButton{0x111}));
        ASSERT_TRUE(spinUntil([&] { return clicks == 2 && recorder.keys.size() == 4; }));
        monitor.stop();
        ASSERT_TRUE(spinUntil([&] { return received.size() == 4; }));
        EXPECT_EQ(received[3], ClientMessage(keyd::SetPointerButtons{false}));
        EXPECT_FALSE(monitor.isRunning());
    }

    // The service losing its last keyboard is an inactive tap, not a lost one.
    send(bytesOf(keyd::Health{0}));
    ASSERT_TRUE(waitForHealth({true, false}));
    EXPECT_EQ(log.count(QStringLiteral("Volume keys now control the Sonos")), 1);
}

TEST_F(ServiceTapTest, refusalsAreLoggedOnceAndAnAcceptedRetryGrantsInputAccess)
{
    hello.status = keyd::HelloStatus::busy;
    auto tap = installedTap();
    ASSERT_TRUE(spinUntil([&] { return connections == 1 && !tap->isEnabled(); }));
    spinFor(50ms);
    EXPECT_EQ(recorder.lastHealth(), std::pair(true, false)) << "busy: installed, but not ours";
    tap->check();
    ASSERT_TRUE(spinUntil([&] { return connections == 2; })) << "busy is retried";

    hello.status = keyd::HelloStatus::notActiveSession;
    tap->check();
    ASSERT_TRUE(spinUntil([&] { return !tap->isTrusted(); }));
    EXPECT_EQ(recorder.lastHealth(), std::pair(false, false));
    tap->check();
    ASSERT_TRUE(spinUntil([&] { return connections == 4; })) << "trust is asked again";

    // A service of another version is not used either.
    hello = keyd::Hello{keyd::kProtocolVersion + 1, keyd::HelloStatus::accepted};
    tap->check();
    const QString otherVersion =
        QStringLiteral("key service speaks protocol version 2, not 1 — keys stay with the desktop");
    ASSERT_TRUE(spinUntil([&] { return log.count(otherVersion) == 1; }));
    EXPECT_FALSE(tap->isTrusted());

    hello = keyd::Hello{};
    tap->check();
    ASSERT_TRUE(waitForHealth({true, true}));
    tap->check();
    spinFor(50ms);

    for (const char* reason : {"another client is connected", "not the active session"}) {
        EXPECT_EQ(log.count(QStringLiteral("key service refused this session (%1) — keys stay with "
                                           "the desktop")
                                .arg(reason)),
                  1);
    }
    EXPECT_EQ(log.count(QStringLiteral("Input access granted")), 1);
}

TEST_F(ServiceTapTest, aLostServiceIsReconnectedOncePerWatchdogPassThenRebuilt)
{
    recorder.armedAnswer = true;
    auto tap = installedTap();
    ASSERT_TRUE(spinUntil([&] { return received.size() == 1; }));

    dropClient();
    ASSERT_TRUE(spinUntil([&] { return connections == 2 && received.size() == 2; }));
    EXPECT_EQ(received[1], ClientMessage(keyd::SetArmed{true})) << "the new connection is told";
    EXPECT_TRUE(waitForHealth({true, true}));
    EXPECT_EQ(log.count(QStringLiteral("event tap reconnected after the key service dropped it")),
              1);

    // Dropped again before the next watchdog pass: that pass reconnects, not the drop.
    dropClient();
    ASSERT_TRUE(waitForHealth({true, false}));
    spinFor(100ms);
    EXPECT_EQ(connections, 2);
    tap->check();
    EXPECT_TRUE(waitForHealth({true, true}));
    EXPECT_EQ(connections, 3);
    EXPECT_EQ(log.count(QStringLiteral("event tap found disabled — re-enabling")), 1);

    // A service that died leaves its socket file behind, and connecting to it is refused.
    LogWatch later;
    server.close();
    dropClient();
    const int stale = ::socket(AF_UNIX, SOCK_STREAM, 0);
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    qstrncpy(address.sun_path, QFile::encodeName(path()).constData(), sizeof(address.sun_path));
    ASSERT_EQ(::bind(stale, reinterpret_cast<sockaddr*>(&address), sizeof(address)), 0);
    ASSERT_TRUE(waitForHealth({true, false}));

    tap->check();
    EXPECT_EQ(recorder.lastHealth(), std::pair(true, false));
    const QStringList lines = later.lines();
    const qsizetype found = lines.indexOf(QStringLiteral("event tap found disabled — re-enabling"));
    ASSERT_GE(found, 0) << lines.join(u'\n').toStdString();
    EXPECT_EQ(lines.value(found + 1), QStringLiteral("re-enable failed — rebuilding the tap"));
    tap->check();
    EXPECT_EQ(later.count(QStringLiteral("event tap found disabled — re-enabling")), 1)
        << "once rebuilt, later passes only try to install";

    ::close(stale);
    QLocalServer::removeServer(path());
    ASSERT_TRUE(server.listen(path()));
    tap->startWatchdog(50ms);
    EXPECT_TRUE(waitForHealth({true, true}));
}

} // namespace
