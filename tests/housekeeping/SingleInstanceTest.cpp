// The single-instance claim over a private session bus (started by the test's wrapper). Each
// "launch" is a connection of its own to that bus, so one process can play both copies. The
// end-to-end test shows the line a refused launch logs.
#include "housekeeping/SingleInstance.h"

#include "common/LogWatch.h"
#include "common/Wait.h"

#include <QDBusConnectionInterface>

#include <gtest/gtest.h>

using testing_support::spinFor;
using testing_support::spinUntil;
using namespace std::chrono_literals;

namespace {

// A connection to the test's session bus under a name of its own.
QDBusConnection launch(const QString& name)
{
    return QDBusConnection::connectToBus(QDBusConnection::SessionBus, name);
}

TEST(SingleInstanceTest, LaterLaunchesAskTheFirstToShowItselfUntilItHasGone)
{
    {
        const QDBusConnection bus = launch(QStringLiteral("first"));
        ASSERT_TRUE(bus.isConnected()) << "run under tests/common/with-session-bus";
        SingleInstance first(bus);
        ASSERT_TRUE(first.claim());

        SingleInstance second(launch(QStringLiteral("second")));
        EXPECT_FALSE(second.claim());
        spinFor(100ms);
        int shown = 0;
        QObject::connect(&first, &SingleInstance::showRequested, [&shown] { ++shown; });
        EXPECT_TRUE(spinUntil([&] { return shown == 1; }, 3s))
            << "a request made before the handler is kept";

        // The running copy keeps the name: a third launch is turned away as well.
        SingleInstance third(launch(QStringLiteral("third")));
        EXPECT_FALSE(third.claim());
        EXPECT_TRUE(spinUntil([&] { return shown == 2; }, 3s));
        spinFor(50ms);
        EXPECT_EQ(shown, 2);
    }
    QDBusConnection::disconnectFromBus(QStringLiteral("first"));
    QDBusConnection next = launch(QStringLiteral("later"));
    ASSERT_TRUE(spinUntil(
        [&] { return !next.interface()->isServiceRegistered(SingleInstance::serviceName); }, 3s));
    SingleInstance again(next);
    EXPECT_TRUE(again.claim());
    EXPECT_EQ(next.interface()->serviceOwner(SingleInstance::serviceName).value(),
              next.baseService());
    for (const char* name : {"second", "third", "later"})
        QDBusConnection::disconnectFromBus(QString::fromLatin1(name));
}

TEST(SingleInstanceTest, WithoutASessionBusEveryLaunchMayRun)
{
    const QDBusConnection none = QDBusConnection::connectToBus(
        QStringLiteral("unix:path=/nonexistent/velotide-test-bus"), QStringLiteral("none"));
    ASSERT_FALSE(none.isConnected());
    LogWatch log;
    SingleInstance a(none);
    SingleInstance b(none);
    EXPECT_TRUE(a.claim());
    EXPECT_TRUE(b.claim());
    EXPECT_TRUE(log.lines().isEmpty());
    QDBusConnection::disconnectFromBus(QStringLiteral("none"));
}

} // namespace
