// The SSDP search over real multicast on the loopback of a private network namespace, with
// the test itself playing the devices on the network.
#include "discovery/SsdpSearch.h"

#include "SsdpPeer.h"
#include "common/Wait.h"

#include <gtest/gtest.h>

using namespace std::chrono_literals;
using testing_support::await;
using testing_support::spinFor;
using testing_support::spinUntil;

namespace {

class SsdpSearchTest : public ::testing::Test {
protected:
    void SetUp() override { ASSERT_TRUE(peer.listen()); }

    // Starts a search and waits until its M-SEARCH has reached the peer.
    QFuture<SsdpSearch::Result> search(std::chrono::milliseconds window)
    {
        QFuture<SsdpSearch::Result> future = SsdpSearch::run(window);
        EXPECT_TRUE(spinUntil([this] { return peer.hasSearcher(); }, 2s));
        return future;
    }

    static SsdpSearch::Result resultOf(const QFuture<SsdpSearch::Result>& future)
    {
        EXPECT_TRUE(await(future));
        return future.result();
    }

    SsdpPeer peer;
};

TEST_F(SsdpSearchTest, SendsTheSearchThriceOnLoopbackWhenThatIsTheOnlyInterface)
{
    const auto interfaces = SsdpSearch::searchInterfaces();
    ASSERT_EQ(interfaces.size(), 1);
    EXPECT_TRUE(interfaces.first().flags().testFlag(QNetworkInterface::IsLoopBack));

    const SsdpSearch::Result result = resultOf(search(400ms));
    EXPECT_TRUE(result.joined);
    EXPECT_EQ(result.counters.probesSent, 3);
    EXPECT_EQ(peer.searches(), 3);
    // Sent from an ephemeral port, whose unicast answers no other searcher can take.
    EXPECT_NE(peer.searcherPort(), 1900);
    EXPECT_EQ(peer.lastSearch(), QByteArray("M-SEARCH * HTTP/1.1\r\n"
                                            "HOST: 239.255.255.250:1900\r\n"
                                            "MAN: \"ssdp:discover\"\r\n"
                                            "MX: 1\r\n"
                                            "ST: urn:schemas-upnp-org:device:ZonePlayer:1\r\n"
                                            "\r\n"));
    EXPECT_TRUE(result.hosts.isEmpty());
}

TEST_F(SsdpSearchTest, AFloodOfForeignAndMalformedDatagramsChangesNothingAndStaysBounded)
{
    auto future = search(1500ms);
    ASSERT_TRUE(peer.send("127.0.0.11", SsdpPeer::answer("127.0.0.11")));
    ASSERT_TRUE(peer.send("127.0.0.12", SsdpPeer::answer("127.0.0.12")));

    QByteArray notUtf8 = SsdpPeer::answer("127.0.0.40");
    notUtf8.insert(20, "\xC3\x28\xFF\xFE");
    const QByteArray foreign = "HTTP/1.1 200 OK\r\nST: urn:schemas-upnp-org:device:"
                               "MediaServer:1\r\nSERVER: NAS/1.0 UPnP/1.0\r\n\r\n";
    // The largest datagram loopback carries, and one that says "Sonos" but is not text.
    QByteArray huge(65507, 'x');
    huge.replace(0, 5, "Sonos");
    huge[100] = char(0xFF);
    const QByteArray empty;

    int sent = 0;
    for (int round = 0; round < 100; ++round) {
        ASSERT_TRUE(peer.send("127.0.0.40", notUtf8, 10));
        ASSERT_TRUE(peer.send("127.0.0.41", foreign, 10));
        ASSERT_TRUE(peer.send("127.0.0.42", empty, 10));
        sent += 30;
        if (round % 5 == 0) {
            ASSERT_TRUE(peer.send("127.0.0.43", huge, 1));
            ++sent;
        }
        spinFor(2ms);
    }

    const SsdpSearch::Result result = resultOf(future);
    EXPECT_EQ(result.hosts, (QSet<QString>{"127.0.0.11", "127.0.0.12"}));
    // Whatever the kernel let through was read and thrown away; most of it arrived.
    EXPECT_GT(result.counters.datagrams, sent / 2);
    EXPECT_EQ(result.counters.ignored, result.counters.datagrams - 2);
    EXPECT_EQ(result.counters.hostsRefused, 0);
    EXPECT_LE(result.counters.largestRead, SsdpSearch::maxDatagram);
    EXPECT_EQ(result.counters.bufferBytes, SsdpSearch::maxDatagram + 1);
}

TEST_F(SsdpSearchTest, KeepsNoMoreThanItsCapOfHosts)
{
    auto future = search(1500ms);
    const int senders = SsdpSearch::maxHosts + 100;
    for (int i = 0; i < senders; ++i) {
        const QString host = QStringLiteral("127.1.%1.%2").arg(i / 200).arg(1 + i % 200);
        ASSERT_TRUE(peer.send(host, SsdpPeer::answer(host)));
        if (i % 20 == 0)
            spinFor(1ms);
    }

    const SsdpSearch::Result result = resultOf(future);
    EXPECT_EQ(result.hosts.size(), SsdpSearch::maxHosts);
    EXPECT_EQ(result.counters.hostsRefused, result.counters.datagrams - SsdpSearch::maxHosts);
    EXPECT_GT(result.counters.hostsRefused, 0);
}

TEST(SsdpText, RecognisesZonePlayerAnswers)
{
    EXPECT_TRUE(SsdpSearch::isZonePlayerAnswer("SERVER: Linux UPnP/1.0 Sonos/80.1"));
    EXPECT_TRUE(SsdpSearch::isZonePlayerAnswer("ST: urn:schemas-upnp-org:device:ZonePlayer:1"));
    EXPECT_FALSE(SsdpSearch::isZonePlayerAnswer("ST: urn:schemas-upnp-org:device:ZonePlayer:2"));
    EXPECT_FALSE(SsdpSearch::isZonePlayerAnswer("SERVER: SONOS"));
    EXPECT_FALSE(SsdpSearch::isZonePlayerAnswer(""));
    EXPECT_FALSE(SsdpSearch::isZonePlayerAnswer("Sonos \xE2\x82")); // cut-off sequence
    EXPECT_FALSE(SsdpSearch::isZonePlayerAnswer("Sonos \xC0\xAF")); // overlong "/"
    EXPECT_TRUE(SsdpSearch::isZonePlayerAnswer("Sonos Wohnzimmer K\xC3\xBC"
                                               "che"));
}

TEST(SsdpText, ReadsTheHouseholdAnIdentifierAtMost)
{
    EXPECT_EQ(SsdpSearch::householdOf("HTTP/1.1 200 OK\r\nx-rincon-household: Sonos_Ab1 \r\n\r\n"),
              "Sonos_Ab1");
    EXPECT_EQ(SsdpSearch::householdOf("HTTP/1.1 200 OK\r\nX-RINCON-HOUSEHOLD: a b\r\n"), "");
    EXPECT_EQ(SsdpSearch::householdOf(
                  "HTTP/1.1 200 OK\r\nX-RINCON-HOUSEHOLD: " + QByteArray(65, 'x') + "\r\n"),
              "");
    EXPECT_EQ(SsdpSearch::householdOf("HTTP/1.1 200 OK\r\nX-RINCON-BOOTSEQ: 3\r\n"), "");
}

TEST(SsdpText, CutsTheInterfaceScopeOffTheSender)
{
    EXPECT_EQ(SsdpSearch::hostText("fe80::1c2d:3e4f%en0"), "fe80::1c2d:3e4f");
    EXPECT_EQ(SsdpSearch::hostText("fe80::1%eth0%x"), "fe80::1");
    EXPECT_EQ(SsdpSearch::hostText("192.168.1.20"), "192.168.1.20");
}

} // namespace
