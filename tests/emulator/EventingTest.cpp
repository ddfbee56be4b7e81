// The players' eventing as a control point meets it over real sockets: no client of the
// project's own takes part, so that the emulator answers to the architecture, not to the
// client it later tests.
#include "common/Wait.h"
#include "emulator/Emulator.h"

#include <QTcpServer>
#include <QTcpSocket>

#include <gtest/gtest.h>

using testing_support::spinFor;
using testing_support::spinUntil;
using namespace std::chrono_literals;

namespace {

const QString livingRoom = QStringLiteral("127.0.0.11");

// A control point's callback: takes every NOTIFY with a 200 and keeps it.
class Callback : public QObject {
public:
    Callback()
    {
        m_server.listen(QHostAddress::LocalHost);
        connect(&m_server, &QTcpServer::newConnection, this, [this] {
            QTcpSocket* socket = m_server.nextPendingConnection();
            connect(socket, &QTcpSocket::readyRead, socket, [this, socket] {
                m_buffer += socket->readAll();
                const qsizetype head = m_buffer.indexOf("\r\n\r\n");
                const qsizetype length = header(m_buffer, "CONTENT-LENGTH").toLongLong();
                if (head < 0 || m_buffer.size() < head + 4 + length)
                    return;
                notifications << m_buffer;
                m_buffer.clear();
                socket->write("HTTP/1.1 200 OK\r\nContent-Length: 0\r\n\r\n");
                socket->disconnectFromHost();
            });
        });
    }

    QByteArray url() const
    {
        return "<http://127.0.0.1:" + QByteArray::number(m_server.serverPort()) + "/events>";
    }

    static QByteArray header(const QByteArray& message, const QByteArray& name)
    {
        for (const QByteArray& line : message.left(message.indexOf("\r\n\r\n")).split('\n'))
            if (line.toLower().startsWith(name.toLower() + ':'))
                return line.mid(name.size() + 1).trimmed();
        return {};
    }

    QList<QByteArray> notifications;

private:
    QTcpServer m_server;
    QByteArray m_buffer;
};

// One request to a player, answered on the player's own thread while this one waits.
QByteArray ask(const QString& host, const QByteArray& request)
{
    QTcpSocket socket;
    socket.connectToHost(host, 1400);
    if (!socket.waitForConnected(5000))
        return {};
    socket.write(request);
    QByteArray answer;
    while (!answer.contains("\r\n\r\n") && socket.waitForReadyRead(5000))
        answer += socket.readAll();
    return answer;
}

QByteArray subscribe(const QByteArray& path, const QByteArray& fields)
{
    return ask(livingRoom,
               "SUBSCRIBE " + path + " HTTP/1.1\r\nHOST: 127.0.0.11:1400\r\n" + fields + "\r\n");
}

class Eventing : public ::testing::Test {
protected:
    void SetUp() override
    {
        ASSERT_FALSE(players.start(QStringLiteral(EMULATOR_HOUSEHOLDS "/home-theatre.json")))
            << "run under tests/common/in-netns";
    }

    emulator::EmulatorThread players;
    Callback callback;
};

TEST_F(Eventing, ASubscriberHearsTheStateThenEachChangeUntilItLeaves)
{
    const QByteArray granted =
        subscribe("/MediaRenderer/RenderingControl/Event",
                  "CALLBACK: " + callback.url() + "\r\nNT: upnp:event\r\nTIMEOUT: Second-60\r\n");
    ASSERT_TRUE(granted.startsWith("HTTP/1.1 200")) << granted.toStdString();
    const QByteArray sid = Callback::header(granted, "SID");
    EXPECT_TRUE(sid.startsWith("uuid:RINCON_")) << sid.toStdString();
    EXPECT_EQ(Callback::header(granted, "TIMEOUT"), "Second-60");

    ASSERT_TRUE(spinUntil([&] { return callback.notifications.size() == 1; }));
    players->setVolume(livingRoom, 31);
    ASSERT_TRUE(spinUntil([&] { return callback.notifications.size() == 2; }));
    for (int seq = 0; seq < 2; ++seq) {
        const QByteArray& notify = callback.notifications[seq];
        EXPECT_TRUE(notify.startsWith("NOTIFY /events HTTP/1.1\r\n"));
        EXPECT_EQ(Callback::header(notify, "NTS"), "upnp:propchange");
        EXPECT_EQ(Callback::header(notify, "SID"), sid);
        EXPECT_EQ(Callback::header(notify, "SEQ"), QByteArray::number(seq));
    }
    // The volume travels escaped inside LastChange.
    EXPECT_TRUE(callback.notifications[1].contains(
        "&lt;Volume channel=&quot;Master&quot; val=&quot;31&quot;/&gt;"));

    const QByteArray renewal = "SID: " + sid + "\r\nTIMEOUT: Second-60\r\n";
    EXPECT_TRUE(
        subscribe("/MediaRenderer/RenderingControl/Event", renewal).startsWith("HTTP/1.1 200"));
    EXPECT_TRUE(subscribe("/MediaRenderer/RenderingControl/Event", renewal + "NT: upnp:event\r\n")
                    .startsWith("HTTP/1.1 400"));
    EXPECT_TRUE(ask(livingRoom, "UNSUBSCRIBE /MediaRenderer/RenderingControl/Event "
                                "HTTP/1.1\r\nHOST: 127.0.0.11:1400\r\nSID: " +
                                    sid + "\r\n\r\n")
                    .startsWith("HTTP/1.1 200"));
    EXPECT_TRUE(
        subscribe("/MediaRenderer/RenderingControl/Event", renewal).startsWith("HTTP/1.1 412"));
    players->setVolume(livingRoom, 40);
    spinFor(300ms);
    EXPECT_EQ(callback.notifications.size(), 2);
}

// Players that refuse to be asked for the topology still send it in their events, and a
// subscription left to expire falls silent.
TEST_F(Eventing, TheTopologyComesByEventAndExpiredSubscriptionsFallSilent)
{
    emulator::PlayerQuirks refusing;
    refusing.refusesTopology = true;
    players->setQuirks(livingRoom, refusing);
    const QByteArray granted =
        subscribe("/ZoneGroupTopology/Event",
                  "CALLBACK: " + callback.url() + "\r\nNT: upnp:event\r\nTIMEOUT: Second-1\r\n");
    ASSERT_TRUE(granted.startsWith("HTTP/1.1 200")) << granted.toStdString();
    ASSERT_TRUE(spinUntil([&] { return callback.notifications.size() == 1; }));
    EXPECT_TRUE(callback.notifications[0].contains("<ZoneGroupState>&lt;ZoneGroupState&gt;"));
    EXPECT_TRUE(callback.notifications[0].contains("Living Room"));

    spinFor(1200ms);
    players->setOnline(QStringLiteral("127.0.0.15"), false); // the topology changes
    spinFor(300ms);
    EXPECT_EQ(callback.notifications.size(), 1);
    EXPECT_EQ(players->events(livingRoom).size(), 1);
}

} // namespace
