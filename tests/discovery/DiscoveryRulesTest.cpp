// The parts of discovery and topology that need no network: the texts sent, the texts read,
// the rules that pick and order speakers, and the coordinator's sharing and caching with a
// scripted sweep and clock.
#include "common/LogWatch.h"
#include "common/Wait.h"
#include "discovery/Coordinator.h"
#include "discovery/SonosDiscovery.h"
#include "discovery/TopologyScan.h"
#include "discovery/ZoneTopology.h"

#include <QPromise>
#include <QThread>

#include <gtest/gtest.h>

using namespace std::chrono_literals;
using testing_support::await;

namespace {

SonosDevice player(const QString& name, const QString& uid, const QString& model = "One",
                   const QString& host = "127.0.0.11")
{
    return SonosDevice{host, uid, name, model};
}

// ---- the search and the description

const QByteArray description = R"(<?xml version="1.0" encoding="utf-8" ?>
<root xmlns="urn:schemas-upnp-org:device-1-0">
<device>
<deviceType>urn:schemas-upnp-org:device:ZonePlayer:1</deviceType>
<roomName>Living Room</roomName>
<modelName>Sonos Arc</modelName>
<UDN>uuid:RINCON_48A6B8C0D1E201400</UDN>
<deviceList>
<device><deviceType>urn:schemas-upnp-org:device:MediaRenderer:1</deviceType>
<roomName>Other</roomName><modelName>Sonos Arc Media Renderer</modelName>
<UDN>uuid:RINCON_48A6B8C0D1E201400_MR</UDN></device>
</deviceList>
</device>
</root>)";

TEST(DiscoveryTexts, ReadsTheRootDeviceAndDropsADescriptionMissingAnyOfTheThree)
{
    const auto device = SonosDiscovery::parseDescription("192.168.1.30", description);
    ASSERT_TRUE(device);
    EXPECT_EQ(*device, (SonosDevice{"192.168.1.30", "RINCON_48A6B8C0D1E201400", "Living Room",
                                    "Sonos Arc"}));

    for (const char* element : {"UDN", "roomName", "modelName"}) {
        QByteArray body = description;
        // Every occurrence goes, the embedded device's too.
        body.replace(QByteArray("<") + element + ">", "<x>");
        const auto dropped = SonosDiscovery::parseDescription("h", body);
        ASSERT_FALSE(dropped) << element;
        EXPECT_EQ(std::get<SonosError>(dropped.error()), SonosError::badResponse());
    }
    // An element with attributes is not the element.
    QByteArray attributed = description;
    attributed.replace("<modelName>", "<modelName lang=\"en\">");
    EXPECT_FALSE(SonosDiscovery::parseDescription("h", attributed));
}

TEST(DiscoveryTexts, RemovesEveryUuidPrefixRepairsBadBytesAndReadsNamesAsMeant)
{
    const auto device = SonosDiscovery::parseDescription(
        "h", "<UDN>uuid:uuid:RINCON_1</UDN><roomName>K\xFF\xC3\xBC"
             "che &amp; Kids&apos; Den</roomName><modelName>Play&#58;1</modelName>");
    ASSERT_TRUE(device);
    EXPECT_EQ(device->uid, "RINCON_1");
    EXPECT_EQ(device->name, QStringLiteral("K\uFFFD\u00FCche & Kids' Den"));
    EXPECT_EQ(device->model, QStringLiteral("Play:1"));
}

TEST(DiscoveryRules, TellsNativeOpticalFromTheModelName)
{
    for (const char* model :
         {"Sonos Ray", "RAY", "Playbar", "PLAYBASE", "Sonos Arc Ultra-ray", "Stray Cat"})
        EXPECT_TRUE(SonosDiscovery::hasNativeOptical(model)) << model;
    for (const char* model : {"Sonos Arc", "Sonos Beam", "Play:5", "Sub", "", "R a y"})
        EXPECT_FALSE(SonosDiscovery::hasNativeOptical(model)) << model;
}

TEST(DiscoveryRules, SortsByRoomNameInCodePointOrderThenByHost)
{
    QList<SonosDevice> devices{player("kitchen", "A"), player("Office", "B"),
                               player("Kitchen", "C"), player("Bath", "D"),
                               player("\u00C4rbeitszimmer", "E")};
    SonosDiscovery::sortByName(devices);
    QStringList names;
    for (const SonosDevice& device : devices)
        names.append(device.name);
    EXPECT_EQ(names, (QStringList{"Bath", "Kitchen", "Office", "kitchen", "\u00C4rbeitszimmer"}));

    const SonosDevice bar = player("Den", "RINCON_1", "Beam", "10.0.0.9");
    const SonosDevice sub = player("Den", "RINCON_2", "Sub", "10.0.0.10");
    const SonosDevice left = player("Den", "RINCON_3", "One SL", "10.0.0.11");
    QList<SonosDevice> theatre{left, bar, sub};
    SonosDiscovery::sortByName(theatre);
    EXPECT_EQ(theatre, (QList<SonosDevice>{sub, left, bar}));
}

// ---- readings of the topology

// As the zone group state travels inside the SOAP answer.
QString escaped(QString text)
{
    return text.replace("&", "&amp;")
        .replace("<", "&lt;")
        .replace(">", "&gt;")
        .replace("\"", "&quot;");
}

// A home theatre (soundbar with two surrounds and a sub) grouped with a kitchen player,
// and a bedroom on its own.
const QString theatre = QStringLiteral(
    "<ZoneGroups>"
    "<ZoneGroup Coordinator=\"RINCON_AAA01400\" ID=\"RINCON_AAA01400:12\">"
    "<ZoneGroupMember UUID=\"RINCON_AAA01400\" ZoneName=\"Living Room\" Location=\"x\">"
    "<Satellite UUID=\"RINCON_SUB01400\" ZoneName=\"Living Room\" Invisible=\"1\"/>"
    "<Satellite UUID=\"rincon_ls01400\" ZoneName=\"Living Room\" Invisible=\"1\"/>"
    "<Satellite UUID=\"RINCON_RS01400\" ZoneName=\"Living Room\" Invisible=\"0\"/>"
    "</ZoneGroupMember>"
    "<ZoneGroupMember UUID=\"RINCON_KIT01400\" ZoneName=\"Kitchen\"/>"
    "</ZoneGroup>"
    "<ZoneGroup Coordinator=\"RINCON_BED01400\" ID=\"RINCON_BED01400:3\">"
    "<ZoneGroupMember UUID=\"rincon_bed01400\" ZoneName=\"Bedroom\"/>"
    "<ZoneGroupMember UUID=\"RINCON_BDSUB1400\" ZoneName=\"Bedroom\" Invisible=\"1\"/>"
    "</ZoneGroup>"
    "</ZoneGroups>");

TEST(TopologyScan, FindsOpeningTagsWithAttributesInOrder)
{
    const QString text = "<a x=\"1\"><a><b y=\"2\"/><a  z=\"3\" >text</a><ab q=\"4\"/>";
    EXPECT_EQ(ZoneTopology::tags(u"a", text), (QStringList{"<a x=\"1\">", "<a  z=\"3\" >"}));
    EXPECT_EQ(ZoneTopology::tags(u"b", text), QStringList{"<b y=\"2\"/>"});
    EXPECT_TRUE(ZoneTopology::tags(u"c", text).isEmpty());
    EXPECT_TRUE(ZoneTopology::tags(u"a", u"<a x=\"never closed").isEmpty());
}

TEST(TopologyScan, ReadsAttributesAsTheyStand)
{
    const QString tag = "<ZoneGroupMember UUID=\"RINCON_1\" ZoneName=\"Tom &amp; Jo\" Empty=\"\">";
    EXPECT_EQ(ZoneTopology::attribute(u"UUID", tag), "RINCON_1");
    EXPECT_EQ(ZoneTopology::attribute(u"ZoneName", tag), "Tom &amp; Jo");
    EXPECT_EQ(ZoneTopology::attribute(u"Empty", tag), "");
    EXPECT_EQ(ZoneTopology::attribute(u"Invisible", tag), std::nullopt);
    EXPECT_EQ(ZoneTopology::attribute(u"UUID", u"<x UUID='single'>"), std::nullopt);
    EXPECT_EQ(ZoneTopology::attribute(u"UUID", u"<x UUID=\"unterminated>"), std::nullopt);
}

TEST(TopologyScan, CollectsInvisibleMembersAndSatellitesUpperCased)
{
    EXPECT_EQ(ZoneTopology::invisibleUIDs(escaped(theatre)),
              (QSet<QString>{"RINCON_SUB01400", "RINCON_LS01400", "RINCON_BDSUB1400"}));
    EXPECT_EQ(ZoneTopology::invisibleUIDs(theatre), ZoneTopology::invisibleUIDs(escaped(theatre)));
    EXPECT_TRUE(ZoneTopology::invisibleUIDs("").isEmpty());
}

TEST(TopologyScan, FindsTheGroupOfAPlayerWhateverTheLetterCase)
{
    const auto living = ZoneTopology::groupInfo("RINCON_KIT01400", theatre);
    ASSERT_TRUE(living);
    EXPECT_EQ(living->coordinator, "RINCON_AAA01400");
    EXPECT_EQ(living->members, (QStringList{"RINCON_AAA01400", "RINCON_KIT01400"}));

    const auto bedroom = ZoneTopology::groupInfo("rincon_BED01400", theatre);
    ASSERT_TRUE(bedroom);
    EXPECT_EQ(bedroom->coordinator, "RINCON_BED01400");
    EXPECT_EQ(bedroom->members, (QStringList{"RINCON_BED01400", "RINCON_BDSUB1400"}));

    // Satellites are not members of their own.
    EXPECT_EQ(ZoneTopology::groupInfo("RINCON_SUB01400", theatre), std::nullopt);
    EXPECT_EQ(ZoneTopology::groupInfo("RINCON_NOPE", theatre), std::nullopt);
}

// A group without a coordinator is skipped, and one group's members never leak into the next.
TEST(TopologyScan, SkipsGroupsWithoutCoordinatorAndKeepsMembersToTheirGroup)
{
    const QString text = "<ZoneGroup ID=\"x\"><ZoneGroupMember UUID=\"RINCON_A\"/></ZoneGroup>"
                         "<ZoneGroup Coordinator=\"RINCON_B\"><ZoneGroupMember UUID=\"RINCON_A\"/>"
                         "<ZoneGroupMember UUID=\"RINCON_B\"/></ZoneGroup>"
                         "<ZoneGroup Coordinator=\"RINCON_C\">"
                         "<ZoneGroupMember UUID=\"RINCON_C\"/></ZoneGroup>";
    const auto info = ZoneTopology::groupInfo("RINCON_A", text);
    ASSERT_TRUE(info);
    EXPECT_EQ(info->coordinator, "RINCON_B");
    EXPECT_EQ(info->members, (QStringList{"RINCON_A", "RINCON_B"}));
    EXPECT_EQ(ZoneTopology::groupInfo("RINCON_C", text)->members, QStringList{"RINCON_C"});
}

TEST(TopologyVisible, HidesSatellitesWrittenInAnyCaseAndSaysSoOnce)
{
    const QList<SonosDevice> devices{
        player("Living Room", "RINCON_AAA01400", "Arc", "127.0.0.11"),
        player("Living Room", "RINCON_SUB01400", "Sub", "127.0.0.12"),
        player("Living Room", "rincon_LS01400", "One SL", "127.0.0.13"),
        player("Kitchen", "RINCON_KIT01400", "One", "127.0.0.14")};
    const QString line = "hiding bonded satellites: Living Room (Sub) at 127.0.0.12, "
                         "Living Room (One SL) at 127.0.0.13";
    LogWatch log;
    const QList<SonosDevice> kept{devices[0], devices[3]};
    EXPECT_EQ(ZoneTopology::withoutSatellites(devices, escaped(theatre)), kept);
    EXPECT_EQ(ZoneTopology::withoutSatellites(devices, escaped(theatre)), kept);
    EXPECT_EQ(log.count(line), 1);

    // A different set is a new line; going back to the first set writes it again.
    EXPECT_EQ(ZoneTopology::withoutSatellites(devices.mid(0, 2), escaped(theatre)),
              devices.mid(0, 1));
    EXPECT_EQ(ZoneTopology::withoutSatellites(devices, escaped(theatre)), kept);
    EXPECT_EQ(log.count(line), 2);
}

// A topology that would hide nothing, or every zone, leaves the list as it is.
TEST(TopologyVisible, HidingNothingOrEverythingKeepsAll)
{
    const QList<SonosDevice> devices{player("Bath", "RINCON_B"), player("Den", "RINCON_D")};
    LogWatch log;
    EXPECT_EQ(ZoneTopology::withoutSatellites(devices, escaped(theatre)), devices);
    EXPECT_EQ(ZoneTopology::withoutSatellites(devices, "not a topology at all"), devices);
    EXPECT_TRUE(log.lines().isEmpty());

    const QList<SonosDevice> satellites{player("Living Room", "RINCON_SUB01400", "Sub"),
                                        player("Bedroom", "rincon_bdsub1400", "Sub")};
    EXPECT_EQ(ZoneTopology::withoutSatellites(satellites, escaped(theatre)), satellites);
    EXPECT_EQ(log.lines(), QStringList{"topology hid every zone; ignoring it"});
}

TEST(TopologyGroup, FindsTheCoordinatorAndCountsOnlyVisibleMembers)
{
    const SonosDevice arc = player("Living Room", "RINCON_AAA01400", "Arc");
    const SonosDevice kitchen = player("Kitchen", "rincon_kit01400");
    const SonosDevice bedroom = player("Bedroom", "RINCON_BED01400");
    const SonosDevice sub = player("Living Room", "RINCON_SUB01400", "Sub");
    const QList<SonosDevice> among{kitchen, arc, bedroom};
    const QString answer = escaped(theatre);

    EXPECT_EQ(ZoneTopology::groupTarget(kitchen, among, answer),
              (ZoneTopology::GroupTarget{arc, true}));
    // A player with its sub is one visible member: not grouped.
    EXPECT_EQ(ZoneTopology::groupTarget(bedroom, among, answer),
              (ZoneTopology::GroupTarget{bedroom, false}));
    // A coordinator that discovery did not find: the device itself.
    EXPECT_EQ(ZoneTopology::groupTarget(kitchen, {kitchen}, answer),
              (ZoneTopology::GroupTarget{kitchen, true}));
    // Not in any group of the answer.
    EXPECT_EQ(ZoneTopology::groupTarget(sub, among, answer),
              (ZoneTopology::GroupTarget{sub, false}));
}

ZoneState zone(const QString& name, bool lineIn, bool optical)
{
    return ZoneState{player(name, "RINCON_" + name), lineIn, optical};
}

TEST(TopologyOptical, PrefersNativeOpticalThenLineInputAndKeepsTheConfiguredSpeaker)
{
    const QList<ZoneState> mixed{zone("Bar", false, true), zone("Den", true, false),
                                 zone("Bath", false, false)};
    EXPECT_EQ(ZoneTopology::opticalCapable(mixed, std::nullopt), QSet<QString>{"Bar"});
    EXPECT_EQ(ZoneTopology::opticalCapable(mixed, QString("Bath")), (QSet<QString>{"Bar", "Bath"}));
    EXPECT_EQ(ZoneTopology::opticalCapable(mixed, QString("Attic")), QSet<QString>{"Bar"});
    EXPECT_EQ(ZoneTopology::opticalCapable(mixed, QString("")), QSet<QString>{"Bar"});

    const QList<ZoneState> noBar{zone("Den", true, false), zone("Bath", false, false),
                                 zone("Hall", true, false)};
    EXPECT_EQ(ZoneTopology::opticalCapable(noBar, std::nullopt), (QSet<QString>{"Den", "Hall"}));

    const QList<ZoneState> quiet{zone("Den", false, false), zone("Bath", false, false)};
    EXPECT_TRUE(ZoneTopology::opticalCapable(quiet, std::nullopt).isEmpty());
    EXPECT_EQ(ZoneTopology::opticalCapable(quiet, QString("Bath")), QSet<QString>{"Bath"});
}

TEST(TopologyOptical, NamesTheZonePlayingLineInputOnlyWhenThereIsOne)
{
    EXPECT_EQ(
        ZoneTopology::playingOverOptical({zone("Den", true, false), zone("Bar", false, true)}),
        "Den");
    EXPECT_EQ(ZoneTopology::playingOverOptical({zone("Den", true, false), zone("Bar", true, true)}),
              std::nullopt);
    EXPECT_EQ(ZoneTopology::playingOverOptical({zone("Bar", false, true)}), std::nullopt);
    EXPECT_EQ(ZoneTopology::playingOverOptical({}), std::nullopt);
}

// ---- the coordinator, with a sweep the test finishes by hand

class ScriptedSweeps {
public:
    QFuture<QList<SonosDevice>> operator()(double timeout)
    {
        timeouts.append(timeout);
        pending.push_back(std::make_shared<QPromise<QList<SonosDevice>>>());
        pending.back()->start();
        return pending.back()->future();
    }

    void finish(const QList<SonosDevice>& zones)
    {
        auto promise = pending.front();
        pending.erase(pending.begin());
        promise->addResult(zones);
        promise->finish();
    }

    QList<double> timeouts;
    std::vector<std::shared_ptr<QPromise<QList<SonosDevice>>>> pending;
};

class CoordinatorRules : public ::testing::Test {
protected:
    CoordinatorRules()
        : coordinator([this](double timeout) { return sweeps(timeout); }, [this] { return now; })
    {
    }

    QList<SonosDevice> result(const QFuture<QList<SonosDevice>>& future)
    {
        EXPECT_TRUE(await(future, 2s));
        return future.isFinished() ? future.result() : QList<SonosDevice>();
    }

    std::chrono::steady_clock::time_point now{std::chrono::hours(1)};
    ScriptedSweeps sweeps;
    SonosDiscovery::Coordinator coordinator;
    const QList<SonosDevice> household{player("Bath", "RINCON_B"), player("Den", "RINCON_D")};
};

TEST_F(CoordinatorRules, KeepsANonEmptyResultForTenSecondsAndNeverAnEmptyOne)
{
    auto swept = coordinator.zones(1.0);
    sweeps.finish({});
    EXPECT_TRUE(result(swept).isEmpty());
    auto next = coordinator.zones(1.0);
    EXPECT_EQ(coordinator.sweepsStarted(), 2);
    sweeps.finish(household);
    EXPECT_EQ(result(next), household);

    now += 9999ms;
    auto cached = coordinator.zones(1.0);
    EXPECT_TRUE(cached.isFinished());
    EXPECT_EQ(result(cached), household);
    EXPECT_EQ(coordinator.sweepsStarted(), 2);

    now += 1ms;
    auto again = coordinator.zones(1.0);
    EXPECT_EQ(coordinator.sweepsStarted(), 3);
    sweeps.finish({household[0]});
    EXPECT_EQ(result(again), QList<SonosDevice>{household[0]});
    // The cache is replaced, and its ten seconds start again from the new sweep.
    now += 5s;
    EXPECT_EQ(result(coordinator.zones(1.0)), QList<SonosDevice>{household[0]});
    EXPECT_EQ(coordinator.sweepsStarted(), 3);

    // An empty sweep after a good one leaves the good one in the cache.
    now += 11s;
    auto empty = coordinator.zones(1.0);
    sweeps.finish({});
    EXPECT_TRUE(result(empty).isEmpty());
    EXPECT_EQ(coordinator.sweepsStarted(), 4);
}

TEST_F(CoordinatorRules, AnswersCallersOnOtherThreadsFromItsOwn)
{
    QFuture<QList<SonosDevice>> fromWorker;
    std::unique_ptr<QThread> worker(QThread::create([&] { fromWorker = coordinator.zones(2.0); }));
    worker->start();
    ASSERT_TRUE(worker->wait(2000));
    ASSERT_TRUE(testing_support::spinUntil([&] { return !sweeps.pending.empty(); }, 2s));
    EXPECT_EQ(sweeps.timeouts, QList<double>{2.0});
    sweeps.finish(household);
    EXPECT_EQ(result(fromWorker), household);
}

TEST_F(CoordinatorRules, ASweepThatIsAbandonedAnswersEmpty)
{
    auto waiting = coordinator.zones(1.0);
    sweeps.pending.clear(); // the promise goes away without a result
    EXPECT_TRUE(result(waiting).isEmpty());
    auto next = coordinator.zones(1.0);
    EXPECT_EQ(coordinator.sweepsStarted(), 2);
}

} // namespace
