// Which players answer a search: the discovery tests count on repeats, silent players and
// unplugged ones being emulated faithfully, but cannot tell them apart themselves.
#include "common/Wait.h"
#include "emulator/Emulator.h"

#include <QMultiMap>
#include <QNetworkDatagram>
#include <QUdpSocket>

#include <gtest/gtest.h>

using namespace std::chrono_literals;

namespace {

// Sends one search from an ephemeral port, as a client does, and counts the answers by
// sender address.
QMultiMap<QString, QByteArray> search()
{
    QUdpSocket socket;
    EXPECT_TRUE(socket.bind(QHostAddress::AnyIPv4, 0));
    const QByteArray probe = "M-SEARCH * HTTP/1.1\r\nHOST: 239.255.255.250:1900\r\n"
                             "MAN: \"ssdp:discover\"\r\nMX: 1\r\n"
                             "ST: urn:schemas-upnp-org:device:ZonePlayer:1\r\n\r\n";
    EXPECT_GT(socket.writeDatagram(probe, QHostAddress(QStringLiteral("239.255.255.250")), 1900), 0)
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

TEST(EmulatorSsdp, QuirksAndOfflinePlayersChangeWhoAnswers)
{
    emulator::EmulatorThread players;
    const auto error =
        players.start(QStringLiteral(EMULATOR_HOUSEHOLDS "/home-theatre.json"), 1400, true);
    ASSERT_FALSE(error) << error->toStdString();
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

    const auto replies = search();
    EXPECT_EQ(replies.count(arc), 3);
    EXPECT_EQ(replies.count(kitchen), 0);
    EXPECT_EQ(replies.count(office), 0);
    EXPECT_EQ(replies.count(QStringLiteral("127.0.0.17")), 1);
    EXPECT_EQ(replies.size(), 3 + 4) << "the other four of the seven answer once each";
}

} // namespace
