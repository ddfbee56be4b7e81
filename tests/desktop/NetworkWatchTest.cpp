// The network watch: the rule on reported facts, then the watch on a real kernel inside the
// private network namespace of in-netns, with veth links standing in for networks.
#include "desktop/NetworkWatch.h"

#include "common/QtPrinters.h"
#include "common/Wait.h"

#include <QProcess>

#include <gtest/gtest.h>

namespace {

using testing_support::spinFor;
using testing_support::spinUntil;

TEST(NetworkWatchTest, EachJoinedNetworkIsOneChangeTheFirstAndLeavingAreNone)
{
    int changes = 0;
    NetworkWatch watch;
    QObject::connect(&watch, &NetworkWatch::changed, [&changes] { ++changes; });
    const NetworkFacts home{"wlan0 via 192.168.1.1", {"wlan0 192.168.1.23"}};
    watch.report({});
    watch.report(home);
    watch.report(home);
    EXPECT_EQ(changes, 0) << "the first usable report describes the start";
    watch.report({"eth0 via 10.0.0.1", {"eth0 10.0.0.5", "wlan0 192.168.1.23"}});
    EXPECT_EQ(changes, 1) << "a cable plugged in takes the default route from the Wi-Fi";
    watch.report({"eth0 via 10.0.0.1", {"eth0 10.0.0.5"}});
    watch.report({});
    EXPECT_EQ(changes, 1) << "leaving is no change";
    watch.report({"", {"eth0 172.16.0.5"}});
    EXPECT_EQ(changes, 2) << "a network without a default route still holds the speakers";
}

void ip(const QString& commands)
{
    QProcess p;
    p.start(QStringLiteral("ip"), {QStringLiteral("-batch"), QStringLiteral("-")});
    p.write(commands.toUtf8());
    p.closeWriteChannel();
    ASSERT_TRUE(p.waitForFinished());
    ASSERT_EQ(p.exitCode(), 0) << p.readAllStandardError().toStdString();
}

TEST(NetworkWatchTest, KernelHopAndLocalNetworkAreOneChangeEach)
{
    ASSERT_EQ(qgetenv("VELOTIDE_IN_NETNS"), "1") << "run through in-netns";
    ip("link add lan0 type veth peer name lan0p\nlink set lan0p up\nlink set lan0 up\n"
       "addr add 192.168.50.2/24 dev lan0\nroute add default via 192.168.50.1\n");
    int changes = 0;
    NetworkWatch watch;
    QObject::connect(&watch, &NetworkWatch::changed, [&changes] { ++changes; });
    watch.start();
    ASSERT_TRUE(spinUntil([&] { return watch.facts().isUsable(); }));

    // A hop in one go: another link takes the address and the default route.
    ip("link add lan1 type veth peer name lan1p\nlink set lan1p up\nlink set lan1 up\n"
       "addr add 10.9.0.2/24 dev lan1\nroute replace default via 10.9.0.1 dev lan1\n"
       "addr del 192.168.50.2/24 dev lan0\n");
    EXPECT_TRUE(spinUntil([&] { return changes == 1; }));
    spinFor(std::chrono::seconds(1));
    EXPECT_EQ(changes, 1);
    EXPECT_EQ(watch.facts(), (NetworkFacts{"lan1 via 10.9.0.1", {"lan1 10.9.0.2"}}));

    ip("route del default\naddr del 10.9.0.2/24 dev lan1\n");
    ASSERT_TRUE(spinUntil([&] { return !watch.facts().isUsable(); }));
    ip("addr add 172.16.0.2/24 dev lan0\n");
    EXPECT_TRUE(spinUntil([&] { return changes == 2; }));
    spinFor(std::chrono::seconds(1));
    EXPECT_EQ(changes, 2);
    EXPECT_EQ(watch.facts(), (NetworkFacts{"", {"lan0 172.16.0.2"}}));
}

} // namespace
