// Event subscriptions and their callback against the household emulator over real sockets,
// and the callback's refusals of what a player never sends. Runs in a private network
// namespace, where the players own 127.0.0.1x:1400.
#include "Results.h"
#include "common/LogWatch.h"
#include "emulator/Emulator.h"
#include "sonos/EventListener.h"
#include "sonos/EventSubscription.h"
#include "sonos/Tags.h"

#include <QTcpSocket>

#include <gtest/gtest.h>

#include <memory>

using namespace speaker_testing;
using namespace std::chrono_literals;
using testing_support::spinFor;
using testing_support::spinUntil;

namespace {

const QString arcHost = QStringLiteral("127.0.0.11");
const QString renderingEvents = QStringLiteral("/MediaRenderer/RenderingControl/Event");

const QByteArray household = R"({
  "household": "Sonos_Event_Test_Household",
  "players": [
    {"host": "127.0.0.11", "uid": "RINCON_000E58A0B1C201400", "room": "Living & Dining",
     "model": "Sonos Arc"},
    {"host": "127.0.0.12", "uid": "RINCON_000E58A0B1C301400", "room": "Kitchen",
     "model": "Sonos One"}
  ]
})";

class EventTest : public ::testing::Test {
protected:
    static void SetUpTestSuite()
    {
        players = std::make_unique<emulator::EmulatorThread>();
        const std::optional<QString> failure = players->startJson(household);
        ASSERT_EQ(failure, std::nullopt) << failure->toStdString();
    }
    static void TearDownTestSuite() { players.reset(); }

    void SetUp() override
    {
        ASSERT_TRUE(players);
        (*players)->clearFaults();
        (*players)->clearRequests();
    }

    static SonosDevice device(const QString& host = arcHost)
    {
        return SonosDevice{host, (*players)->uid(host), (*players)->roomName(host),
                           QStringLiteral("Sonos Arc")};
    }

    static QStringList methods(const QString& host = arcHost)
    {
        QStringList names;
        for (const emulator::Request& request : (*players)->requests(host))
            if (request.action.isEmpty())
                names << QString::fromLatin1(request.method + ' ' + request.path);
        return names;
    }

    static inline std::unique_ptr<emulator::EmulatorThread> players;
};

TEST_F(EventTest, FirstEventPropertyAnswersTheEscapedTextAndUnsubscribes)
{
    const QFuture<std::optional<QString>> topology = firstEventProperty(
        device(), QStringLiteral("/ZoneGroupTopology/Event"), QStringLiteral("ZoneGroupState"), 5s);
    ASSERT_TRUE(testing_support::await(topology));
    ASSERT_TRUE(topology.result().has_value());
    // Still escaped as the body carries it: the room's "&" stands as "&amp;amp;" or "&amp;".
    EXPECT_TRUE(topology.result()->contains(QStringLiteral("&lt;ZoneGroup")));
    EXPECT_TRUE(topology.result()->contains(QStringLiteral("Living &amp;")));
    ASSERT_TRUE(spinUntil([] { return methods().size() == 2; }));
    EXPECT_EQ(methods(), (QStringList{"SUBSCRIBE /ZoneGroupTopology/Event",
                                      "UNSUBSCRIBE /ZoneGroupTopology/Event"}));
}

} // namespace
