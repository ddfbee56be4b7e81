// Discovery and topology against a household of emulated players, over real multicast and
// real HTTP inside a private network namespace. The emulator runs on a thread of its own;
// the test's own SSDP peer counts the searches that go out.
#include "SsdpPeer.h"
#include "common/LogWatch.h"
#include "common/QtPrinters.h"
#include "common/Wait.h"
#include "discovery/Coordinator.h"
#include "discovery/SonosDiscovery.h"
#include "discovery/ZoneScan.h"
#include "discovery/ZoneTopology.h"
#include "emulator/Emulator.h"

#include <gtest/gtest.h>

#include <algorithm>

using namespace std::chrono_literals;
using testing_support::await;

// The emulated players answer within a few tens of milliseconds; half a second leaves room
// for a busy machine.
constexpr double window = 0.5;

namespace {

constexpr char arc[] = "RINCON_000E58A0B1C201400";
constexpr char sub[] = "RINCON_000E58A0B1C301400";
constexpr char surround[] = "RINCON_000E58A0B1C401400";
constexpr char kitchen[] = "RINCON_000E58A0B1C501400";
constexpr char bedroom[] = "RINCON_000E58A0B1C601400";
constexpr char household[] = "Sonos_dIsCoVeRyTeStHoUsEhOlD01";

// A soundbar with a sub (written in lower case by the topology) and one surround (which
// answers every search three times), a kitchen grouped with the bedroom, a player whose
// description lacks its model name, and a Boost.
QByteArray homeTheatre()
{
    return QStringLiteral(R"({
  "household": "%6",
  "players": [
    { "host": "127.0.0.11", "uid": "%1", "room": "Living Room", "model": "Sonos Arc",
      "transport": "PLAYING",
      "track": { "uri": "x-sonos-htastream:%1:spdif", "title": "TV" },
      "satellites": ["%2", "%3"] },
    { "host": "127.0.0.12", "uid": "%2", "room": "Living Room", "model": "Sonos Sub",
      "channel": "SW", "quirks": { "lowerCaseUid": true } },
    { "host": "127.0.0.13", "uid": "%3", "room": "Living Room", "model": "Sonos One SL",
      "channel": "LR", "quirks": { "ssdpReplies": 3 } },
    { "host": "127.0.0.14", "uid": "%4", "room": "Kitchen", "model": "Sonos One" },
    { "host": "127.0.0.15", "uid": "%5", "room": "bedroom", "model": "Sonos Era 100" },
    { "host": "127.0.0.16", "uid": "RINCON_000E58A0B1C701400", "room": "Attic",
      "model": "Sonos Play:1", "quirks": { "describesModelName": false } },
    { "host": "127.0.0.17", "uid": "RINCON_000E58A0B1C801400", "room": "boost",
      "model": "Sonos Boost", "zoneBridge": true }
  ],
  "groups": [ { "coordinator": "%4", "members": ["%5"] } ]
})")
        .arg(arc, sub, surround, kitchen, bedroom, household)
        .toUtf8();
}

// What a sweep of the home theatre finds, in room-name order ("bedroom" is lower case),
// equal names in host order.
const QList<SonosDevice> discovered{
    SonosDevice{"127.0.0.14", kitchen, "Kitchen", "Sonos One", household},
    SonosDevice{"127.0.0.11", arc, "Living Room", "Sonos Arc", household},
    SonosDevice{"127.0.0.12", sub, "Living Room", "Sonos Sub", household},
    SonosDevice{"127.0.0.13", surround, "Living Room", "Sonos One SL", household},
    SonosDevice{"127.0.0.15", bedroom, "bedroom", "Sonos Era 100", household},
    SonosDevice{"127.0.0.17", "RINCON_000E58A0B1C801400", "boost", "Sonos Boost", household},
};

template <typename T>
T resultOf(const QFuture<T>& future, std::chrono::milliseconds timeout = 20s)
{
    EXPECT_TRUE(await(future, timeout));
    return future.isFinished() ? future.result() : T{};
}

class HouseholdDiscovery : public ::testing::Test {
protected:
    void SetUp() override
    {
        ASSERT_TRUE(peer.listen());
        const auto error = players.startJson(homeTheatre(), 1400, true);
        ASSERT_FALSE(error) << error->toStdString();
    }

    SsdpPeer peer;
    emulator::EmulatorThread players;
};

TEST_F(HouseholdDiscovery, APlayerWhoseDescriptionFailsIsLeftOut)
{
    emulator::Fault oversized;
    oversized.kind = emulator::Fault::Kind::Oversized;
    oversized.bodyBytes = 600 * 1024;
    oversized.only = "/xml/device_description.xml";
    players->setFault("127.0.0.14", oversized);
    emulator::Fault garbage;
    garbage.kind = emulator::Fault::Kind::Garbage;
    players->setFault("127.0.0.15", garbage);
    EXPECT_EQ(resultOf(SonosDiscovery::browse(window)), discovered.mid(1, 3) << discovered[5]);
}

TEST_F(HouseholdDiscovery, ConcurrentCallersSendOneSearchAndGetTheSameList)
{
    SonosDiscovery::Coordinator coordinator;
    auto first = coordinator.zones(window);
    auto second = coordinator.zones(2.0);
    const auto a = resultOf(first);
    const auto b = resultOf(second);
    EXPECT_EQ(peer.searches(), 3); // one search, in its three rounds
    // The attic answers the search but its description has no model name: it is left out.
    EXPECT_EQ(a, discovered);
    EXPECT_EQ(a, b);
}

TEST_F(HouseholdDiscovery, TheNextPlayerAnswersWhenTheFirstFaults)
{
    emulator::Fault fault;
    fault.kind = emulator::Fault::Kind::Status;
    fault.status = 500;
    fault.only = "/ZoneGroupTopology"; // the group state and its events alike
    players->setFault("127.0.0.14", fault);
    LogWatch log;
    const auto visible = resultOf(ZoneTopology::visible(discovered));
    EXPECT_EQ(visible, (QList<SonosDevice>{discovered[0], discovered[1], discovered[4]}));
    EXPECT_EQ(log.count("topology: Kitchen answered 500"), 1);
    EXPECT_TRUE(log.lines().filter("no zone answered").isEmpty());
    EXPECT_EQ(players->requests("127.0.0.11").size(), 1);
}

// A device that marks every other player hidden hides only those whose own topology agrees:
// the sub, the surround and the Boost, never a room.
TEST_F(HouseholdDiscovery, AForgedTopologyHidesOnlyThePlayersThatSayTheyAreSatellites)
{
    players->setQuirks("127.0.0.14", {.hidesOthers = true});
    EXPECT_EQ(resultOf(ZoneTopology::visible(discovered)),
              (QList<SonosDevice>{discovered[0], discovered[1], discovered[4]}));
}

// Without the topology the sub and the Boost still never become rooms, and of the players
// that share the living room's name the soundbar stays.
TEST_F(HouseholdDiscovery, WithoutAnAnswerEachRoomIsListedOnceByItsLeader)
{
    players->setOnline("127.0.0.14", false);
    emulator::Fault fault;
    fault.kind = emulator::Fault::Kind::Status;
    fault.status = 503;
    players->setFault("127.0.0.15", fault);
    // Refused, and no topology events either.
    fault.status = 500;
    fault.only = "/ZoneGroupTopology";
    for (const char* host : {"127.0.0.11", "127.0.0.12", "127.0.0.13", "127.0.0.17"})
        players->setFault(host, fault);
    LogWatch log;
    const QList<SonosDevice> backwards(discovered.rbegin(), discovered.rend());
    EXPECT_EQ(resultOf(ZoneTopology::visible(backwards)),
              (QList<SonosDevice>{discovered[4], discovered[1], discovered[0]}));
    EXPECT_EQ(log.lines().filter("topology: Kitchen unreachable (").size(), 1);
    EXPECT_EQ(log.count("no zone answered GetZoneGroupState; listing 3 of 6 players, one per room"),
              1);
}

// Players that take the request and never answer hold the answer up by a fraction of their
// time-out each, and all of them together by the deadline, never by their time-outs in a
// row (5 s each).
TEST_F(HouseholdDiscovery, SilentPlayersDelayTheTopologyOnlyBriefly)
{
    emulator::Fault silent;
    silent.kind = emulator::Fault::Kind::Silent;
    silent.only = "GetZoneGroupState";
    for (const char* host : {"127.0.0.14", "127.0.0.11"})
        players->setFault(host, silent);
    const QList<SonosDevice> visible{discovered[0], discovered[1], discovered[4]};
    EXPECT_EQ(resultOf(ZoneTopology::visible(discovered), 3s), visible);

    players->setFault("127.0.0.15", silent);
    LogWatch log;
    EXPECT_EQ(resultOf(ZoneTopology::visible({discovered[0], discovered[1], discovered[4]}), 9s),
              visible);
    EXPECT_EQ(log.count("topology: no answer in time from Kitchen at 127.0.0.14, Living Room at "
                        "127.0.0.11, bedroom at 127.0.0.15"),
              1);
}

TEST_F(HouseholdDiscovery, TheGroupTargetIsTheCoordinator)
{
    const auto forBedroom = resultOf(ZoneTopology::group(discovered[4], discovered));
    EXPECT_EQ(forBedroom.target, discovered[0]);
    EXPECT_TRUE(forBedroom.grouped);

    players->setOnline("127.0.0.15", false);
    const auto unreachable = resultOf(ZoneTopology::group(discovered[4], discovered));
    EXPECT_EQ(unreachable.target, discovered[4]);
    EXPECT_FALSE(unreachable.grouped);
}

TEST_F(HouseholdDiscovery, AZoneScanIsOneSweepOfTheVisibleZonesWithWhatTheyPlay)
{
    SonosDiscovery::Coordinator coordinator;
    const QList<ZoneState> expected{ZoneState{discovered[0], false, false},
                                    ZoneState{discovered[1], true, false},
                                    ZoneState{discovered[4], false, false}};
    EXPECT_EQ(resultOf(ZoneScan::zoneStates(coordinator, window)), expected);
    EXPECT_EQ(coordinator.sweepsStarted(), 1);

    // Zones asked in no order come back in room order; one that does not answer is idle.
    players->setOnline("127.0.0.15", false);
    const QList<ZoneState> states =
        resultOf(ZoneTopology::states({discovered[4], discovered[1], discovered[0]}));
    EXPECT_EQ(states, expected);
    EXPECT_EQ(ZoneTopology::playingOverOptical(states), "Living Room");
}

// Households of a few dozen players refuse GetZoneGroupState, yet every player sends its group
// state to a subscriber of its topology events. Here every player refuses, and the right-hand
// player of the Loft pair comes first by address, so a guess by room names alone would keep
// the wrong one and would know no groups.
TEST(LargeHousehold, ARefusedTopologyIsReadFromThePlayersEvents)
{
    emulator::EmulatorThread players;
    const auto error = players.start(EMULATOR_HOUSEHOLDS "/household-40.json", 1400, true);
    ASSERT_FALSE(error) << error->toStdString();
    LogWatch log;
    SonosDiscovery::Coordinator coordinator;
    const QList<SonosDevice> found = resultOf(coordinator.zones(window));
    ASSERT_EQ(found.size(), 40);
    const QList<SonosDevice> zones = resultOf(ZoneTopology::visible(found));
    const auto at = [&zones](const QString& host) {
        const auto found = std::find_if(zones.begin(), zones.end(),
                                        [&](const SonosDevice& zone) { return zone.host == host; });
        return found == zones.end() ? std::optional<SonosDevice>() : *found;
    };

    EXPECT_EQ(zones.size(), 29) << log.lines().join('\n').toStdString();
    EXPECT_TRUE(at("127.0.0.48"));
    EXPECT_FALSE(at("127.0.0.47"));
    EXPECT_TRUE(log.lines().filter("no zone answered GetZoneGroupState").isEmpty());

    // The dining room plays in the kitchen's group.
    ASSERT_TRUE(at("127.0.0.22"));
    const auto target = resultOf(ZoneTopology::group(*at("127.0.0.22"), zones));
    EXPECT_EQ(target.target.host, "127.0.0.21");
    EXPECT_TRUE(target.grouped);
}

} // namespace
