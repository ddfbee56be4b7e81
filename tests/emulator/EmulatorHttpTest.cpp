#include "RawHttp.h"
#include "common/Wait.h"
#include "emulator/Emulator.h"

#include <QElapsedTimer>
#include <QRegularExpression>
#include <QThread>

#include <gtest/gtest.h>

using emulator::Fault;
using namespace rawhttp;

namespace {

const QString arc = QStringLiteral("127.0.0.11");
const QString sub = QStringLiteral("127.0.0.12");
const QString kitchen = QStringLiteral("127.0.0.15");
const QString office = QStringLiteral("127.0.0.16");
const QString bedroom = QStringLiteral("127.0.0.17");

QByteArray getVolume(const QString& host)
{
    return soap(host, "RenderingControl", "GetVolume", "<Channel>Master</Channel>");
}

QByteArray setVolume(const QString& host, const QByteArray& value)
{
    return soap(host, "RenderingControl", "SetVolume",
                "<Channel>Master</Channel><DesiredVolume>" + value + "</DesiredVolume>");
}

std::optional<QString> value(const char* name, const std::optional<Reply>& reply)
{
    return reply ? element(QString::fromLatin1(name), QString::fromUtf8(reply->body))
                 : std::nullopt;
}

// GetZoneGroupState carries no InstanceID: its action element is empty.
QByteArray zoneGroupState(const QString& host)
{
    return post(host, "/ZoneGroupTopology/Control",
                serviceType("ZoneGroupTopology") + "#GetZoneGroupState",
                envelopeStart + "<u:GetZoneGroupState xmlns:u=\"urn:schemas-upnp-org:"
                                "service:ZoneGroupTopology:1\"/></s:Body></s:Envelope>");
}

int upnpError(const std::optional<Reply>& reply)
{
    if (!reply || reply->status != 500)
        return -1;
    return value("errorCode", reply).value_or(QStringLiteral("-1")).toInt();
}

Fault fault(Fault::Kind kind, int delayMs = 0, int status = 500, qint64 bodyBytes = 0,
            const QString& only = {})
{
    Fault f;
    f.kind = kind;
    f.delayMs = delayMs;
    f.status = status;
    f.bodyBytes = bodyBytes;
    f.only = only;
    return f;
}

class EmulatorHttp : public ::testing::Test {
protected:
    void SetUp() override
    {
        const auto error = players.start(QStringLiteral(EMULATOR_HOUSEHOLDS "/home-theatre.json"));
        ASSERT_FALSE(error) << error->toStdString();
    }
    emulator::EmulatorThread players;
};

} // namespace

TEST_F(EmulatorHttp, DescriptionNamesTheRootDeviceFirst)
{
    const auto reply = exchange(arc, get(arc, "/xml/device_description.xml"));
    ASSERT_TRUE(reply);
    EXPECT_EQ(reply->status, 200);
    const QString xml = QString::fromUtf8(reply->body);
    EXPECT_EQ(element("deviceType", xml), "urn:schemas-upnp-org:device:ZonePlayer:1");
    EXPECT_EQ(element("UDN", xml), "uuid:RINCON_38420B91A2C401400");
    EXPECT_EQ(element("roomName", xml), "Living Room");
    EXPECT_EQ(element("modelName", xml), "Sonos Arc");
    EXPECT_EQ(element("modelNumber", xml), "S19");
    EXPECT_TRUE(reply->head.contains("Server: Linux UPnP/1.0 Sonos/"));
    EXPECT_EQ(exchange(arc, get(arc, "/xml/nothing.xml"))->status, 404);

    players->setQuirks(arc, {1, true, false, false});
    EXPECT_FALSE(
        exchange(arc, get(arc, "/xml/device_description.xml"))->body.contains("modelName"));
}

TEST_F(EmulatorHttp, SetVolumeThenGetVolumeIsRecordedByteForByte)
{
    QStringList signalled; // delivered queued to this thread
    QObject receiver;
    QObject::connect(players.get(), &emulator::Emulator::requestReceived, &receiver,
                     [&signalled](const emulator::Request& r) { signalled << r.action; });
    const QByteArray set = setVolume(arc, "42");
    const auto setReply = exchange(arc, set);
    ASSERT_TRUE(setReply);
    EXPECT_EQ(setReply->status, 200);
    EXPECT_TRUE(setReply->body.contains("<u:SetVolumeResponse xmlns:u=\"urn:schemas-upnp-org:"
                                        "service:RenderingControl:1\"></u:SetVolumeResponse>"));
    EXPECT_EQ(value("CurrentVolume", exchange(arc, getVolume(arc))), "42");
    EXPECT_EQ(players->volume(arc), 42);

    const QList<emulator::Request> seen = players->requests(arc);
    ASSERT_EQ(seen.size(), 2);
    EXPECT_EQ(seen[0].raw, set);
    EXPECT_EQ(seen[0].action, "SetVolume");
    EXPECT_EQ(seen[0].service, "urn:schemas-upnp-org:service:RenderingControl:1");
    EXPECT_EQ(seen[0].argument("DesiredVolume"), "42");
    EXPECT_EQ(seen[0].headers.value(0).first, "HOST");
    EXPECT_EQ(seen[0].headers.value(3).first, "CONTENT-LENGTH");
    EXPECT_GT(seen[1].receivedNs, seen[0].receivedNs);
    EXPECT_TRUE(players->requests(kitchen).isEmpty());
    testing_support::spinUntil([&] { return signalled.size() >= 2; }, std::chrono::seconds(2));
    EXPECT_EQ(signalled, (QStringList{"SetVolume", "GetVolume"}));

    // Someone else turns it down in the app; the next read sees it.
    players->setVolume(arc, 7);
    players->setMuted(arc, true);
    EXPECT_EQ(value("CurrentVolume", exchange(arc, getVolume(arc))), "7");
    EXPECT_EQ(value("CurrentMute", exchange(arc, soap(arc, "RenderingControl", "GetMute",
                                                      "<Channel>Master</Channel>"))),
              "1");
}

TEST_F(EmulatorHttp, BadCallsAreUpnpFaults)
{
    EXPECT_EQ(upnpError(exchange(arc, setVolume(arc, "150"))), 601);
    EXPECT_EQ(upnpError(exchange(arc, setVolume(arc, "loud"))), 402);
    EXPECT_EQ(upnpError(exchange(arc, soap(arc, "RenderingControl", "GetVolume"))),
              402); // no channel
    EXPECT_EQ(upnpError(exchange(arc, soap(arc, "RenderingControl", "Dance"))), 401);
    EXPECT_EQ(upnpError(exchange(arc, post(arc, controlPath("RenderingControl"),
                                           serviceType("RenderingControl") + "#GetVolume",
                                           envelopeStart + "<u:GetVolume xmlns:u="))),
              401);
    // The action in the header must be the one in the body, on the service of the path.
    QByteArray mismatched = getVolume(arc);
    mismatched.replace("#GetVolume", "#GetMute");
    EXPECT_EQ(upnpError(exchange(arc, mismatched)), 401);
    EXPECT_EQ(upnpError(exchange(arc, soap(arc, "AVTransport", "GetVolume")
                                          .replace("/MediaRenderer/AVTransport/",
                                                   "/MediaRenderer/RenderingControl/"))),
              401);
    EXPECT_EQ(players->volume(arc), 25);
}

TEST_F(EmulatorHttp, EqExistsOnlyWhereTheModelHasIt)
{
    const QByteArray nightMode = "<EQType>NightMode</EQType>";
    EXPECT_EQ(
        value("CurrentValue", exchange(arc, soap(arc, "RenderingControl", "GetEQ", nightMode))),
        "0");
    EXPECT_EQ(exchange(arc, soap(arc, "RenderingControl", "SetEQ",
                                 nightMode + "<DesiredValue>1</DesiredValue>"))
                  ->status,
              200);
    EXPECT_EQ(players->eq(arc, "NightMode"), true);
    EXPECT_EQ(players->eq(arc, "DialogLevel"), true);
    EXPECT_EQ(upnpError(exchange(kitchen, soap(kitchen, "RenderingControl", "GetEQ", nightMode))),
              402);
    EXPECT_EQ(upnpError(exchange(kitchen, soap(kitchen, "RenderingControl", "SetEQ",
                                               nightMode + "<DesiredValue>1</DesiredValue>"))),
              402);
    EXPECT_FALSE(players->eq(kitchen, "NightMode").has_value());
}

TEST_F(EmulatorHttp, GroupVolumeIsTheMembersAverageAndOnlyAtTheCoordinator)
{
    // Office 30 and Bedroom 10 play together, led by Office.
    EXPECT_EQ(value("CurrentVolume",
                    exchange(office, soap(office, "GroupRenderingControl", "GetGroupVolume"))),
              "20");
    EXPECT_EQ(exchange(office, soap(office, "GroupRenderingControl", "SetGroupVolume",
                                    "<DesiredVolume>40</DesiredVolume>"))
                  ->status,
              200);
    EXPECT_EQ(players->volume(office), 60);
    EXPECT_EQ(players->volume(bedroom), 20);
    EXPECT_EQ(
        upnpError(exchange(bedroom, soap(bedroom, "GroupRenderingControl", "GetGroupVolume"))),
        701);
    EXPECT_EQ(upnpError(exchange(bedroom, soap(bedroom, "GroupRenderingControl", "SetGroupMute",
                                               "<DesiredMute>1</DesiredMute>"))),
              701);
    EXPECT_EQ(exchange(office, soap(office, "GroupRenderingControl", "SetGroupMute",
                                    "<DesiredMute>1</DesiredMute>"))
                  ->status,
              200);
    EXPECT_TRUE(players->muted(bedroom));
    EXPECT_EQ(value("CurrentMute",
                    exchange(office, soap(office, "GroupRenderingControl", "GetGroupMute"))),
              "1");
    // A soundbar alone is its own group: the satellites do not count.
    EXPECT_EQ(
        value("CurrentVolume", exchange(arc, soap(arc, "GroupRenderingControl", "GetGroupVolume"))),
        "25");
}

TEST_F(EmulatorHttp, TransportAndNowPlayingFollowTheCoordinator)
{
    const auto position = exchange(arc, soap(arc, "AVTransport", "GetPositionInfo"));
    EXPECT_EQ(value("TrackURI", position), "x-sonos-htastream:RINCON_38420B91A2C401400:spdif");

    const auto kitchenTrack = exchange(kitchen, soap(kitchen, "AVTransport", "GetPositionInfo"));
    const QString didl = unescape(value("TrackMetaData", kitchenTrack).value_or(QString()));
    EXPECT_EQ(element("dc:title", didl), "Never Gonna Give You Up");
    EXPECT_EQ(element("dc:creator", didl), "Rick Astley");
    EXPECT_EQ(element("upnp:album", didl), "Whenever You Need Somebody");
    EXPECT_TRUE(
        element("upnp:albumArtURI", didl).value_or(QString()).startsWith("/getaa?s=1&amp;u="));

    EXPECT_EQ(value("CurrentTransportState",
                    exchange(kitchen, soap(kitchen, "AVTransport", "GetTransportInfo"))),
              "PAUSED_PLAYBACK");
    EXPECT_EQ(exchange(kitchen, soap(kitchen, "AVTransport", "Play", "<Speed>1</Speed>"))->status,
              200);
    EXPECT_EQ(players->transportState(kitchen), "PLAYING");

    // Bedroom follows Office: same track, and pausing it pauses the group.
    EXPECT_EQ(value("TrackURI", exchange(bedroom, soap(bedroom, "AVTransport", "GetPositionInfo"))),
              value("TrackURI", exchange(office, soap(office, "AVTransport", "GetPositionInfo"))));
    EXPECT_EQ(exchange(bedroom, soap(bedroom, "AVTransport", "Pause"))->status, 200);
    EXPECT_EQ(players->transportState(office), "PAUSED_PLAYBACK");
}

TEST_F(EmulatorHttp, TopologyHasTheShapeOfARealHousehold)
{
    players->setQuirks(sub, {1, true, true, true});
    const auto reply = exchange(kitchen, zoneGroupState(kitchen));
    ASSERT_TRUE(reply);
    ASSERT_EQ(reply->status, 200);
    const QString state = unescape(value("ZoneGroupState", reply).value_or(QString()));
    ASSERT_TRUE(state.startsWith("<ZoneGroupState><ZoneGroups><ZoneGroup Coordinator=\""));

    const QRegularExpression groupPattern(
        QStringLiteral("<ZoneGroup Coordinator=\"([^\"]+)\" ID=\"[^\"]+\">(.*?)</ZoneGroup>"));
    QMap<QString, QString> groups; // coordinator -> inner text
    for (auto it = groupPattern.globalMatch(state); it.hasNext();) {
        const auto m = it.next();
        groups.insert(m.captured(1), m.captured(2));
    }
    ASSERT_EQ(groups.size(), 3); // Living Room, Kitchen, Office + Bedroom

    const QString living = groups.value("RINCON_38420B91A2C401400");
    EXPECT_EQ(living.count("<ZoneGroupMember "), 1);
    EXPECT_EQ(living.count("<Satellite "), 3);
    EXPECT_EQ(living.count("Invisible=\"1\""), 3);
    EXPECT_TRUE(living.contains("<Satellite UUID=\"rincon_38420b5d17e201400\"")); // the quirk
    EXPECT_TRUE(living.contains("Location=\"http://127.0.0.13:1400/xml/device_description.xml\""));
    EXPECT_TRUE(living.contains("HTSatChanMapSet=\"RINCON_38420B91A2C401400:LF,RF;"));

    const QString officeGroup = groups.value("RINCON_949F3E6A0B1201400");
    EXPECT_EQ(officeGroup.count("<ZoneGroupMember "), 2);
    EXPECT_TRUE(officeGroup.contains("ZoneName=\"Bedroom\""));
    EXPECT_FALSE(officeGroup.contains("Invisible"));

    // A player that went away leaves the topology.
    players->setOnline(bedroom, false);
    const auto after = value("ZoneGroupState", exchange(kitchen, zoneGroupState(kitchen)));
    ASSERT_TRUE(after);
    EXPECT_TRUE(unescape(*after).contains("ZoneName=\"Office\""));
    EXPECT_FALSE(unescape(*after).contains("ZoneName=\"Bedroom\""));
}

TEST_F(EmulatorHttp, RequestsSplitAcrossReadsAndTwoOnOneConnection)
{
    Connection c;
    ASSERT_TRUE(c.open(arc));
    const QByteArray request = getVolume(arc);
    for (qsizetype at = 0; at < request.size(); at += 40) {
        c.send(request.mid(at, 40));
        QThread::msleep(2);
    }
    EXPECT_EQ(value("CurrentVolume", c.read()), "25");

    c.send(setVolume(arc, "31") + getVolume(arc)); // both in one write
    const auto first = c.read();
    const auto second = c.read();
    ASSERT_TRUE(first && second);
    EXPECT_EQ(first->status, 200);
    EXPECT_EQ(value("CurrentVolume", second), "31");
    EXPECT_FALSE(c.isClosed());
    EXPECT_EQ(players->requests(arc).size(), 3);
}

TEST_F(EmulatorHttp, EveryFaultKindDoesWhatItSays)
{
    players->setFault(arc, fault(Fault::Kind::Delay, 300));
    QElapsedTimer timer;
    timer.start();
    EXPECT_EQ(value("CurrentVolume", exchange(arc, getVolume(arc))), "25");
    EXPECT_GE(timer.elapsed(), 290);

    players->setFault(arc, fault(Fault::Kind::Status, 0, 503));
    EXPECT_EQ(exchange(arc, getVolume(arc))->status, 503);
    players->setFault(arc, fault(Fault::Kind::Status, 0, 500));
    EXPECT_EQ(upnpError(exchange(arc, setVolume(arc, "60"))), 501);
    EXPECT_EQ(players->volume(arc), 25); // a failed request changes nothing

    players->setFault(arc, fault(Fault::Kind::Oversized, 0, 500, 524289));
    const auto big = exchange(arc, getVolume(arc));
    ASSERT_TRUE(big);
    EXPECT_EQ(big->status, 200);
    EXPECT_EQ(big->body.size(), 524289);

    players->setFault(arc, fault(Fault::Kind::Close));
    Connection closing;
    ASSERT_TRUE(closing.open(arc));
    closing.send(getVolume(arc));
    EXPECT_TRUE(closing.readToEnd(2000).isEmpty());
    EXPECT_TRUE(closing.isClosed() || closing.socket().state() == QAbstractSocket::ClosingState);

    players->setFault(arc, fault(Fault::Kind::Garbage));
    Connection garbage;
    ASSERT_TRUE(garbage.open(arc));
    garbage.send(getVolume(arc));
    const QByteArray noise = garbage.readToEnd(2000);
    EXPECT_FALSE(noise.isEmpty());
    EXPECT_FALSE(noise.startsWith("HTTP/"));

    players->setFault(arc, fault(Fault::Kind::Silent));
    Connection silent;
    ASSERT_TRUE(silent.open(arc));
    silent.send(getVolume(arc));
    EXPECT_FALSE(silent.read(400));
    EXPECT_FALSE(silent.isClosed());

    players->clearFaults();
    EXPECT_EQ(exchange(arc, getVolume(arc))->status, 200);
}

TEST_F(EmulatorHttp, FaultsCanAimAtOneActionOrAPathPrefix)
{
    players->setFault(arc, fault(Fault::Kind::Status, 0, 503, 0, QStringLiteral("GetMute")));
    EXPECT_EQ(exchange(arc, getVolume(arc))->status, 200);
    EXPECT_EQ(exchange(arc, soap(arc, "RenderingControl", "GetMute", "<Channel>Master</Channel>"))
                  ->status,
              503);

    players->setFault(arc, fault(Fault::Kind::Status, 0, 503, 0, QStringLiteral("/MediaRenderer")));
    EXPECT_EQ(exchange(arc, getVolume(arc))->status, 503);
    EXPECT_EQ(exchange(arc, soap(arc, "AVTransport", "GetTransportInfo"))->status, 503);
    EXPECT_EQ(exchange(arc, get(arc, "/xml/device_description.xml"))->status, 200);
    EXPECT_EQ(exchange(kitchen, getVolume(kitchen))->status, 200); // other players unaffected
}

TEST_F(EmulatorHttp, AnOfflinePlayerRefusesConnectionsUntilItIsBack)
{
    Connection open;
    ASSERT_TRUE(open.open(arc));
    players->setOnline(arc, false);
    EXPECT_FALSE(players->isOnline(arc));
    open.send(getVolume(arc));
    EXPECT_FALSE(open.read(1000)); // dropped
    EXPECT_FALSE(exchange(arc, getVolume(arc), 1000));
    EXPECT_EQ(exchange(kitchen, getVolume(kitchen))->status, 200);

    players->setOnline(arc, true);
    EXPECT_EQ(value("CurrentVolume", exchange(arc, getVolume(arc))), "25");
}

TEST(EmulatorTopology, StereoPairIsTwoMembersTheRightOneInvisible)
{
    emulator::EmulatorThread players;
    const auto error = players.start(QStringLiteral(EMULATOR_HOUSEHOLDS "/stereo-pair.json"));
    ASSERT_FALSE(error) << error->toStdString();
    const QString left = QStringLiteral("127.0.0.11");
    const auto state = value("ZoneGroupState", exchange(left, zoneGroupState(left)));
    ASSERT_TRUE(state);
    const QString xml = unescape(*state);
    const QRegularExpression member(QStringLiteral("<ZoneGroupMember ([^>]*)>"));
    QStringList lounge;
    for (auto it = member.globalMatch(xml); it.hasNext();) {
        const QString attributes = it.next().captured(1);
        if (attributes.contains(QStringLiteral("ZoneName=\"Lounge\"")))
            lounge << attributes;
    }
    ASSERT_EQ(lounge.size(), 2);
    EXPECT_FALSE(lounge[0].contains(QStringLiteral("Invisible")));
    EXPECT_TRUE(lounge[1].contains(QStringLiteral("Invisible=\"1\"")));
    for (const QString& attributes : lounge)
        EXPECT_TRUE(attributes.contains(QStringLiteral(
            "ChannelMapSet=\"RINCON_B8E9374A1F0001400:LF,LF;RINCON_B8E9374A2E1101400:RF,RF\"")));
    EXPECT_EQ(value("TrackURI", exchange(left, soap(left, "AVTransport", "GetPositionInfo"))),
              "x-rincon-stream:RINCON_B8E9374A1F0001400");
}

TEST(EmulatorHousehold32, EveryPlayerListensAndTheTopologyNamesAllOfThem)
{
    emulator::EmulatorThread players;
    const auto error = players.start(QStringLiteral(EMULATOR_HOUSEHOLDS "/household-32.json"));
    ASSERT_FALSE(error) << error->toStdString();
    const QStringList hosts = players->hosts();
    ASSERT_EQ(hosts.size(), 32);
    for (const QString& host : hosts)
        EXPECT_EQ(value("CurrentVolume", exchange(host, getVolume(host))),
                  QString::number(players->volume(host)))
            << host.toStdString();
    const QString xml = unescape(
        value("ZoneGroupState", exchange(hosts[5], zoneGroupState(hosts[5]))).value_or(QString()));
    EXPECT_EQ(xml.count(QStringLiteral("<ZoneGroupMember ")) +
                  xml.count(QStringLiteral("<Satellite ")),
              32);
    for (const QString& host : hosts)
        EXPECT_TRUE(xml.contains(QStringLiteral("UUID=\"%1\"").arg(players->uid(host))));
}

TEST(EmulatorConnection, ClosesWhenTheClientAsksTo)
{
    emulator::EmulatorThread players;
    ASSERT_FALSE(players.start(QStringLiteral(EMULATOR_HOUSEHOLDS "/stereo-pair.json")));
    const QString host = QStringLiteral("127.0.0.13");
    for (const QByteArray& request :
         {QByteArray(
              "GET /xml/device_description.xml HTTP/1.1\r\nHost: a\r\nConnection: close\r\n\r\n"),
          QByteArray("GET /xml/device_description.xml HTTP/1.0\r\n\r\n")}) {
        Connection c;
        ASSERT_TRUE(c.open(host));
        c.send(request);
        const auto reply = c.read();
        ASSERT_TRUE(reply);
        EXPECT_TRUE(reply->head.contains("Connection: close"));
        EXPECT_TRUE(c.readToEnd(2000).isEmpty());
        EXPECT_TRUE(c.isClosed());
    }
}
