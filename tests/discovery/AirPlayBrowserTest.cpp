// AirPlay receivers as a real Avahi daemon browses them, on a private link and system bus set
// up by the test's wrapper (with-avahi); the session bus there is a bus without the daemon.
#include "discovery/AirPlayBrowser.h"

#include "common/LogWatch.h"
#include "common/Wait.h"

#include <QProcess>

#include <gtest/gtest.h>

#include <memory>
#include <vector>

using testing_support::await;
using namespace std::chrono_literals;

namespace {

TEST(AirPlayBrowser, InstanceNamesAreTwelveHexDigitsAnAtAndANonBlankName)
{
    const auto id = [](const char* name) {
        const auto instance = AirPlayBrowser::instance(QString::fromUtf8(name));
        return instance ? (instance->id + u'|' + instance->name).toStdString() : "-";
    };
    EXPECT_EQ(id("b8e9378d4e2f@  Living Room "), "B8E9378D4E2F|Living Room");
    EXPECT_EQ(id("B8E9378D4E2F@Den@Two"), "B8E9378D4E2F|Den@Two");
    for (const char* skipped :
         {"B8E9378D4E2@Den", "B8E9378D4E2G@Den", "B8E9378D4E2F Den", "B8E9378D4E2F@   ", "@Den"})
        EXPECT_EQ(id(skipped), "-") << skipped;
}

class AirPlayReceivers : public ::testing::Test {
protected:
    // Announces a receiver for as long as the test runs.
    void announce(const QString& instance)
    {
        auto publisher = std::make_unique<QProcess>();
        publisher->setProcessChannelMode(QProcess::MergedChannels);
        publisher->start(
            QStringLiteral("avahi-publish"),
            {QStringLiteral("-s"), instance, QStringLiteral("_raop._tcp"), QStringLiteral("7000")});
        ASSERT_TRUE(testing_support::spinUntil(
            [&] { return publisher->readAll().contains("Established"); }, 10s))
            << "run under tests/common/in-netns tests/discovery/with-avahi";
        publishers.push_back(std::move(publisher));
    }

    std::vector<std::unique_ptr<QProcess>> publishers;
};

TEST_F(AirPlayReceivers, NamesCarriedByTwoReceiversAreAmbiguousForEitherOfThem)
{
    announce(QStringLiteral("B8E9378D4E2F@Bedroom"));
    announce(QStringLiteral("b8e9378d4e30@Bedroom"));
    announce(QStringLiteral("112233445566@Kitchen"));
    announce(QStringLiteral("not a receiver@Hall"));

    AirPlayBrowser browser;
    // Callers at the same time share one browse; later ones within minutes get its answer.
    const QFuture<AirPlayBrowser::Receivers> first = browser.receivers(5s);
    const QFuture<AirPlayBrowser::Receivers> second = browser.receivers(5s);
    ASSERT_TRUE(await(first));
    ASSERT_TRUE(await(second));
    const AirPlayBrowser::Receivers expected{
        {QStringLiteral("Bedroom"),
         {QStringLiteral("B8E9378D4E2F"), QStringLiteral("B8E9378D4E30")}},
        {QStringLiteral("Kitchen"), {QStringLiteral("112233445566")}}};
    EXPECT_EQ(first.result(), expected);
    EXPECT_EQ(second.result(), expected);
    EXPECT_TRUE(browser.receivers().isFinished()) << "answered from memory";

    const auto ambiguous = [&](const char* name, std::optional<QString> id) {
        const QFuture<bool> answer = browser.isAmbiguous(QString::fromUtf8(name), id);
        EXPECT_TRUE(await(answer));
        return answer.result();
    };
    EXPECT_TRUE(ambiguous("Bedroom", QStringLiteral("b8e9378d4e2f")));
    EXPECT_TRUE(ambiguous("Bedroom", std::nullopt));
    EXPECT_FALSE(ambiguous("Bedroom", QStringLiteral("000000000000")));
    EXPECT_FALSE(ambiguous("Kitchen", QStringLiteral("112233445566")));
    EXPECT_FALSE(ambiguous("Attic", std::nullopt));
}

TEST(AirPlayBrowser, WithoutTheDaemonTheAnswerIsEmptyAtOnceAndLoggedOnce)
{
    LogWatch log;
    AirPlayBrowser browser(QDBusConnection::sessionBus());
    const QFuture<AirPlayBrowser::Receivers> answer = browser.receivers(60s);
    ASSERT_TRUE(await(answer, 10s)) << "not held up to the time-out";
    EXPECT_TRUE(answer.result().isEmpty());
    const QStringList lines = log.lines();
    ASSERT_EQ(lines.size(), 1);
    EXPECT_TRUE(lines[0].startsWith(QStringLiteral("airplay browse failed: ")))
        << lines[0].toStdString();
}

} // namespace
