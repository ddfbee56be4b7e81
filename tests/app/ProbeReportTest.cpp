#include "app/ProbeReport.h"

#include <gtest/gtest.h>

namespace {

using namespace ProbeReport;

Zone livingRoom()
{
    Zone zone;
    zone.name = QStringLiteral("Living Room");
    zone.model = QStringLiteral("Sonos Playbar");
    zone.host = QStringLiteral("192.168.1.40");
    zone.uid = QStringLiteral("RINCON_38420B91A2C401400");
    zone.hasNativeOptical = true;
    zone.airplayId = QStringLiteral("38420B91A2C4");
    zone.volume = 25;
    zone.uri = QStringLiteral("x-sonos-htastream:RINCON_38420B91A2C401400:spdif");
    zone.lineInputActive = true;
    return zone;
}

TEST(ProbeReport, OutputsArePaddedNotCutAndOnlyTheDefaultIsMarked)
{
    Facts facts;
    facts.outputs = {{QStringLiteral("Built-in Audio Analog Stereo"), QStringLiteral("built-in")},
                     {QStringLiteral("Scarlett 2i2 USB"), QStringLiteral("usb")},
                     {QStringLiteral("24 characters exactly..."), QStringLiteral("virtual")}};
    facts.defaultOutput = QStringLiteral("Scarlett 2i2 USB");
    facts.detectedTrigger = QStringLiteral("Scarlett 2i2 USB");
    const QStringList expected = {
        "",
        "AUDIO OUTPUTS",
        "  Built-in Audio Analog Stereo  built-in",
        "  Scarlett 2i2 USB          usb ← current",
        "  24 characters exactly...  virtual",
        "  detected trigger output: Scarlett 2i2 USB",
        "",
        "WHAT IS MAKING SOUND",
        "  (nothing is playing)",
    };
    EXPECT_EQ(audio(facts), expected);

    facts.defaultOutput.reset();
    facts.detectedTrigger.reset();
    facts.processesOutputting = {QStringLiteral("spotify"), QStringLiteral("firefox")};
    const QStringList lines = audio(facts);
    for (const QString& line : lines)
        EXPECT_FALSE(line.contains(QStringLiteral("current"))) << line.toStdString();
    EXPECT_EQ(lines.at(5), "  detected trigger output: (none looks external)");
    EXPECT_EQ(lines.mid(7), QStringList({"WHAT IS MAKING SOUND", "  spotify", "  firefox"}));
}

TEST(ProbeReport, HeadWarnsAboutARunningCopy)
{
    Facts facts;
    const QStringList alone = {"Velotide probe", "", "PERMISSIONS", "  Input access: false",
                               "    (input access comes from the key service, velotide-keyd)"};
    EXPECT_EQ(head(facts), alone);

    facts.otherCopyRunning = true;
    facts.inputAccess = true;
    const QStringList lines = head(facts);
    ASSERT_EQ(lines.size(), 9);
    EXPECT_EQ(lines.at(2), "WARNING: Velotide is running. Its own SSDP sweeps contend");
    EXPECT_EQ(lines.at(4), "though the speakers are fine. Quit the app and run again.");
    EXPECT_EQ(lines.at(5), "");
    EXPECT_EQ(lines.at(7), "  Input access: true");
}

TEST(ProbeReport, DiscoveryListsHiddenPlayersOrSaysNoneFound)
{
    Facts facts;
    facts.discoverySeconds = 3.04;
    facts.hidden = {{QStringLiteral("Living Room"), QStringLiteral("Sonos Sub")},
                    {QStringLiteral("Living Room"), QStringLiteral("Sonos One SL")}};
    facts.zones = {livingRoom()};
    const QStringList expected = {
        "", "SONOS ZONES (SSDP)", "  discovery took 3.0s",
        "  hidden (bonded satellites): Living Room [Sonos Sub], Living Room [Sonos One SL]"};
    EXPECT_EQ(discovery(facts), expected);

    facts.hidden.clear();
    facts.zones.clear();
    facts.discoverySeconds = 3.06;
    const QStringList none = {
        "", "SONOS ZONES (SSDP)", "  discovery took 3.1s",
        "  none found — check this computer and the speakers are on the same network,",
        "  and whether a firewall is blocking discovery"};
    EXPECT_EQ(discovery(facts), none);
}

TEST(ProbeReport, ZoneAnsweringOrFailing)
{
    Zone zone = livingRoom();
    const QStringList lineIn = {
        "  Living Room — Sonos Playbar at 192.168.1.40",
        "    uid: RINCON_38420B91A2C401400",
        "    optical socket: true   airplay id: 38420B91A2C4",
        "    volume: 25  muted: false",
        "    uri: x-sonos-htastream:RINCON_38420B91A2C401400:spdif",
        "    line input active: true",
    };
    EXPECT_EQ(ProbeReport::zone(zone), lineIn);

    zone.airplayId.reset();
    zone.muted = true;
    zone.uri.clear();
    zone.title = QStringLiteral("So What");
    zone.artist = QStringLiteral("Miles Davis");
    zone.lineInputActive = false;
    const QStringList idle = ProbeReport::zone(zone);
    EXPECT_EQ(idle.at(2), "    optical socket: true   airplay id: ?");
    EXPECT_EQ(idle.mid(3),
              QStringList({"    volume: 25  muted: true", "    uri: (idle)",
                           "    playing: So What — Miles Davis", "    line input active: false"}));

    zone.controlError = QStringLiteral("HTTP 500");
    const QStringList failed = ProbeReport::zone(zone);
    ASSERT_EQ(failed.size(), 4);
    EXPECT_EQ(failed.at(3), "    control failed: HTTP 500");
}

TEST(ProbeReport, FirstRunSettingsAndVerdict)
{
    Facts facts;
    facts.inputAccess = true;
    const QStringList expected = {
        "",
        "SETTINGS (first run — none saved)",
        "  speaker: (not chosen)",
        "  route: optical",
        "  trigger output: (any)",
        "  paused: false",
        "",
        "WOULD THE KEYS BE ARMED?  no — no output chosen",
        "  (assuming the event tap is healthy; probe mode does not install one)",
    };
    EXPECT_EQ(settingsAndVerdict(facts), expected);
}

TEST(ProbeReport, VerdictUsesTheVisibleZonesAndTheDefaultOutput)
{
    Facts facts;
    facts.inputAccess = true;
    facts.settingsPath = QStringLiteral("/home/u/.config/velotide/settings.json");
    facts.settings.speaker = QStringLiteral("Living Room");
    facts.settings.route = Settings::Route::Network;
    facts.settings.triggerOutput = QStringLiteral("Scarlett 2i2 USB");
    facts.settings.triggerConfigured = true;
    facts.defaultOutput = QStringLiteral("Scarlett 2i2 USB");
    facts.zones = {livingRoom()};

    const QStringList lines = settingsAndVerdict(facts);
    EXPECT_EQ(lines.at(1), "SETTINGS (/home/u/.config/velotide/settings.json)");
    EXPECT_EQ(lines.at(3), "  route: network");
    EXPECT_EQ(lines.at(4), "  trigger output: Scarlett 2i2 USB");
    EXPECT_EQ(lines.at(7), "WOULD THE KEYS BE ARMED?  yes");

    // The speaker's name must match a visible zone exactly.
    facts.settings.speaker = QStringLiteral("living room");
    EXPECT_EQ(verdict(facts), ArmedState(ArmedState::Case::speakerNotConnected));
    facts.settings.speaker = QStringLiteral("Living Room");

    facts.defaultOutput = QStringLiteral("scarlett 2i2 usb");
    EXPECT_EQ(settingsAndVerdict(facts).at(7),
              "WOULD THE KEYS BE ARMED?  no — output is scarlett 2i2 usb, not Scarlett 2i2 USB");

    facts.settings.paused = true;
    facts.inputAccess = false;
    EXPECT_EQ(settingsAndVerdict(facts).at(5), "  paused: true");
    EXPECT_EQ(settingsAndVerdict(facts).at(7), "WOULD THE KEYS BE ARMED?  no — paused");
}

TEST(ProbeReport, WholeReportIsTheSectionsInOrder)
{
    Facts facts;
    facts.zones = {livingRoom(), livingRoom()};
    facts.zones[1].name = QStringLiteral("Kitchen");
    const QStringList report = render(facts);
    EXPECT_EQ(report.first(), "Velotide probe");
    const qsizetype living =
        report.indexOf(QStringLiteral("  Living Room — Sonos Playbar at 192.168.1.40"));
    const qsizetype kitchen =
        report.indexOf(QStringLiteral("  Kitchen — Sonos Playbar at 192.168.1.40"));
    const qsizetype settings = report.indexOf(QStringLiteral("SETTINGS (first run — none saved)"));
    EXPECT_GT(living, report.indexOf(QStringLiteral("SONOS ZONES (SSDP)")));
    EXPECT_GT(kitchen, living);
    EXPECT_GT(settings, kitchen);
    EXPECT_EQ(report.last(),
              "  (assuming the event tap is healthy; probe mode does not install one)");
}

} // namespace
