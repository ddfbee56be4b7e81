// The wake watch against a private bus standing in for the system bus, with a connection of
// the test's own playing logind.
#include "desktop/SleepWatch.h"

#include "common/Wait.h"

#include <QDBusConnectionInterface>
#include <QDBusMessage>

#include <gtest/gtest.h>

using namespace std::chrono_literals;
using testing_support::spinFor;
using testing_support::spinUntil;

namespace {

bool sendPrepareForSleep(QDBusConnection& from, bool sleeping)
{
    QDBusMessage signal = QDBusMessage::createSignal(
        QStringLiteral("/org/freedesktop/login1"), QStringLiteral("org.freedesktop.login1.Manager"),
        QStringLiteral("PrepareForSleep"));
    signal << sleeping;
    return from.send(signal);
}

TEST(SleepWatch, ReportsEachWakeFromLogindAndNothingElse)
{
    QDBusConnection logind =
        QDBusConnection::connectToBus(QDBusConnection::SessionBus, QStringLiteral("logind"));
    ASSERT_TRUE(logind.isConnected()) << "run under tests/common/with-session-bus";
    ASSERT_TRUE(logind.registerService(QStringLiteral("org.freedesktop.login1")));
    QDBusConnection impostor =
        QDBusConnection::connectToBus(QDBusConnection::SessionBus, QStringLiteral("impostor"));

    int wakes = 0;
    SleepWatch watch([] { return QDBusConnection::sessionBus(); });
    QObject::connect(&watch, &SleepWatch::woke, [&wakes] { ++wakes; });
    ASSERT_TRUE(spinUntil([&] { return watch.isListening(); }, 5s));

    ASSERT_TRUE(sendPrepareForSleep(logind, true));
    spinFor(200ms);
    EXPECT_EQ(wakes, 0) << "going to sleep is not a wake";

    ASSERT_TRUE(sendPrepareForSleep(logind, false));
    EXPECT_TRUE(spinUntil([&] { return wakes == 1; }, 5s));

    // The same signal from a connection that is not logind is not believed.
    ASSERT_TRUE(sendPrepareForSleep(impostor, false));
    spinFor(300ms);
    EXPECT_EQ(wakes, 1);

    ASSERT_TRUE(sendPrepareForSleep(logind, false));
    EXPECT_TRUE(spinUntil([&] { return wakes == 2; }, 5s));
}

} // namespace
