// The single-instance claim over a private session bus (started by the test's wrapper). Each
// "launch" is a connection of its own to that bus, so one process can play both copies.
#include "housekeeping/SingleInstance.h"

#include "common/LogWatch.h"
#include "common/Wait.h"

#include <QCoreApplication>
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

QString pidsLine()
{
    return QStringLiteral("another instance is already running (pid %1); showing it and exiting")
        .arg(QCoreApplication::applicationPid());
}

class SingleInstanceTest : public testing::Test {
protected:
    void TearDown() override
    {
        for (const QString& name :
             {QStringLiteral("first"), QStringLiteral("second"), QStringLiteral("third")})
            QDBusConnection::disconnectFromBus(name);
    }
};

TEST_F(SingleInstanceTest, LaterLaunchesAskTheFirstToShowItselfAndStop)
{
    const QDBusConnection bus = launch(QStringLiteral("first"));
    ASSERT_TRUE(bus.isConnected()) << "run under tests/common/with-session-bus";
    SingleInstance first(bus);
    ASSERT_TRUE(first.claim());

    LogWatch log;
    SingleInstance second(launch(QStringLiteral("second")));
    EXPECT_FALSE(second.claim());
    spinFor(100ms);
    int shown = 0;
    QObject::connect(&first, &SingleInstance::showRequested, [&shown] { ++shown; });
    EXPECT_TRUE(spinUntil([&] { return shown == 1; }, 3s))
        << "a request made before the handler is kept";
    EXPECT_EQ(log.count(pidsLine()), 1) << log.lines().join(u'\n').toStdString();

    // The running copy keeps the name: a third launch is turned away as well.
    SingleInstance third(launch(QStringLiteral("third")));
    EXPECT_FALSE(third.claim());
    EXPECT_TRUE(spinUntil([&] { return shown == 2; }, 3s));
    spinFor(50ms);
    EXPECT_EQ(shown, 2);
}

TEST_F(SingleInstanceTest, NameIsFreeAgainOnceTheRunningCopyHasGone)
{
    {
        SingleInstance first(launch(QStringLiteral("first")));
        ASSERT_TRUE(first.claim());
    }
    QDBusConnection::disconnectFromBus(QStringLiteral("first"));
    QDBusConnection second = launch(QStringLiteral("second"));
    ASSERT_TRUE(spinUntil(
        [&] { return !second.interface()->isServiceRegistered(SingleInstance::serviceName); }, 3s));

    LogWatch log;
    SingleInstance next(second);
    EXPECT_TRUE(next.claim());
    EXPECT_EQ(log.count(pidsLine()), 0);
    EXPECT_EQ(second.interface()->serviceOwner(SingleInstance::serviceName).value(),
              second.baseService());
}

TEST_F(SingleInstanceTest, WithoutASessionBusEveryLaunchMayRun)
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
