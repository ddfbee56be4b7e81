#include "common/Wait.h"
#include "emulator/Emulator.h"

#include <QMultiMap>
#include <QNetworkDatagram>
#include <QUdpSocket>

#include <gtest/gtest.h>

using namespace std::chrono_literals;

namespace {

QByteArray mSearch(const QByteArray& st)
{
    return "M-SEARCH * HTTP/1.1\r\nHOST: 239.255.255.250:1900\r\nMAN: \"ssdp:discover\"\r\nMX: "
           "1\r\nST: " +
           st + "\r\n\r\n";
}

QByteArray headerOf(const QByteArray& datagram, const QByteArray& name)
{
    for (const QByteArray& line : datagram.split('\n')) {
        if (line.toUpper().startsWith(name + ':'))
            return line.mid(name.size() + 1).trimmed();
    }
    return {};
}

// Sends one search from an ephemeral port, as a client does, and collects what comes back
// by sender address.
QMultiMap<QString, QByteArray> search(const QByteArray& st,
                                      const QString& to = QStringLiteral("239.255.255.250"))
{
    QUdpSocket socket;
    EXPECT_TRUE(socket.bind(QHostAddress::AnyIPv4, 0));
    EXPECT_GT(socket.writeDatagram(mSearch(st), QHostAddress(to), 1900), 0)
        << socket.errorString().toStdString();
    QMultiMap<QString, QByteArray> replies;
    testing_support::spinUntil(
        [&] {
            while (socket.hasPendingDatagrams()) {
                const QNetworkDatagram d = socket.receiveDatagram();
                replies.insert(d.senderAddress().toString(), d.data());
            }
            return false;
        },
        400ms);
    return replies;
}

class Ssdp : public ::testing::Test {
protected:
    void SetUp() override
    {
        const auto error =
            players.start(QStringLiteral(EMULATOR_HOUSEHOLDS "/home-theatre.json"), 1400, true);
        ASSERT_FALSE(error) << error->toStdString();
    }
    emulator::EmulatorThread players;
};

} // namespace

TEST_F(Ssdp, EveryPlayerAnswersOnceFromItsOwnAddress)
{
    const auto replies = search("urn:schemas-upnp-org:device:ZonePlayer:1");
    const QStringList hosts = players->hosts();
    ASSERT_EQ(hosts.size(), 7); // satellites included
    EXPECT_EQ(replies.size(), hosts.size());
    for (const QString& host : hosts) {
        ASSERT_EQ(replies.count(host), 1) << host.toStdString();
        const QByteArray d = replies.value(host);
        EXPECT_TRUE(d.startsWith("HTTP/1.1 200 OK\r\n"));
        EXPECT_EQ(headerOf(d, "LOCATION"),
                  "http://" + host.toUtf8() + ":1400/xml/device_description.xml");
        EXPECT_EQ(headerOf(d, "ST"), "urn:schemas-upnp-org:device:ZonePlayer:1");
        EXPECT_EQ(headerOf(d, "USN"), "uuid:" + players->uid(host).toUtf8() +
                                          "::urn:schemas-upnp-org:device:ZonePlayer:1");
        EXPECT_EQ(headerOf(d, "X-RINCON-HOUSEHOLD"), players->householdId().toUtf8());
        EXPECT_TRUE(headerOf(d, "SERVER").contains("Sonos/"));
        EXPECT_FALSE(headerOf(d, "CACHE-CONTROL").isEmpty());
        EXPECT_FALSE(headerOf(d, "X-RINCON-BOOTSEQ").isEmpty());
    }
    EXPECT_EQ(search("ssdp:all").size(), hosts.size());
    EXPECT_TRUE(search("urn:schemas-upnp-org:device:MediaRenderer:1").isEmpty());
}

TEST_F(Ssdp, QuirksAndOfflinePlayersChangeWhoAnswers)
{
    const QString arc = QStringLiteral("127.0.0.11");
    const QString kitchen = QStringLiteral("127.0.0.15");
    const QString office = QStringLiteral("127.0.0.16");
    emulator::PlayerQuirks chatty;
    chatty.ssdpReplies = 3;
    players->setQuirks(arc, chatty);
    emulator::PlayerQuirks mute;
    mute.answersSsdp = false;
    players->setQuirks(kitchen, mute);
    players->setOnline(office, false);

    const auto replies = search("urn:schemas-upnp-org:device:ZonePlayer:1");
    EXPECT_EQ(replies.count(arc), 3);
    EXPECT_EQ(replies.count(kitchen), 0);
    EXPECT_EQ(replies.count(office), 0);
    EXPECT_EQ(replies.count(QStringLiteral("127.0.0.17")), 1);
    EXPECT_EQ(replies.size(), 3 + 4);
}

TEST_F(Ssdp, ASearchSentToOnePlayerIsAnsweredByItAlone)
{
    const QString kitchen = QStringLiteral("127.0.0.15");
    const auto replies = search("urn:schemas-upnp-org:device:ZonePlayer:1", kitchen);
    EXPECT_EQ(replies.keys(), QStringList{kitchen});
    EXPECT_EQ(replies.size(), 1);
}
