// On a machine with several links (Wi-Fi, wired, VPN, container bridges) the search must
// go out on each of them, from the one socket that reads the answers.
#include "common/Wait.h"
#include "discovery/SsdpSearch.h"

#include <QNetworkDatagram>
#include <QUdpSocket>

#include <gtest/gtest.h>

using namespace std::chrono_literals;

namespace {

QStringList names(const QList<QNetworkInterface>& interfaces)
{
    QStringList names;
    for (const QNetworkInterface& interface : interfaces)
        names.append(interface.name());
    names.sort();
    return names;
}

TEST(SearchInterfaces, AreTheUpMulticastLinksWithAnAddressAndTheSearchLeavesOnEveryOne)
{
    // lan2 is down; the far ends lan0p and lan1p carry no IPv4 address; lo is not needed.
    EXPECT_EQ(names(SsdpSearch::searchInterfaces()).join(u' ').toStdString(), "lan0 lan1");

    // Multicast loops back to local members of the group on the link it was sent on, so a
    // member joined on both links sees which links the search left on.
    QUdpSocket member;
    ASSERT_TRUE(member.bind(QHostAddress::AnyIPv4, 1900, QUdpSocket::ShareAddress));
    const QHostAddress group = SsdpSearch::groupAddress();
    for (const char* name : {"lan0", "lan1"})
        ASSERT_TRUE(member.joinMulticastGroup(group, QNetworkInterface::interfaceFromName(name)));

    auto search = SsdpSearch::run(400ms);
    ASSERT_TRUE(testing_support::await(search));
    EXPECT_TRUE(search.result().joined);
    EXPECT_EQ(search.result().counters.probesSent, 6);

    QStringList arrivedOn;
    while (member.hasPendingDatagrams()) {
        const QNetworkDatagram datagram = member.receiveDatagram();
        EXPECT_EQ(datagram.data(), SsdpSearch::probe());
        arrivedOn.append(QNetworkInterface::interfaceNameFromIndex(int(datagram.interfaceIndex())));
    }
    arrivedOn.sort();
    EXPECT_EQ(arrivedOn.join(u' ').toStdString(), "lan0 lan0 lan0 lan1 lan1 lan1");
}

} // namespace
