// The report's sections one by one; whole reports are compared by the probe's end-to-end test.
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
    zone.volume = 25;
    return zone;
}

TEST(ProbeReport, AnIdleZoneWithoutAnAirPlayIdentity)
{
    Zone zone = livingRoom();
    zone.muted = true;
    const QStringList lines = ProbeReport::zone(zone);
    EXPECT_EQ(lines.at(2), "    optical socket: false   airplay id: ?");
    EXPECT_EQ(lines.mid(3), QStringList({"    volume: 25  muted: true", "    uri: (idle)",
                                         "    line input active: false"}));
}

// A room name that would clear the screen, retitle the window and print a forged verdict.
TEST(ProbeReport, APlayersTextCannotActOnTheTerminal)
{
    Zone zone = livingRoom();
    zone.name = QStringLiteral("\x1b[2J\x1b]0;hi\aDen\r\nWOULD THE KEYS BE ARMED?  yes\0");
    const QStringList lines = ProbeReport::zone(zone);
    EXPECT_EQ(lines.at(0), R"(  \e[2J\e]0;hi\x07Den\r\nWOULD THE KEYS BE ARMED?  yes\x00 — )"
                           "Sonos Playbar at 192.168.1.40");
}

TEST(ProbeReport, VerdictNeedsTheSpeakerAmongTheVisibleZonesByItsExactName)
{
    Facts facts;
    facts.inputAccess = true;
    facts.settings.speaker = QStringLiteral("Living Room");
    facts.settings.triggerOutput = QStringLiteral("Scarlett 2i2 USB");
    facts.settings.triggerConfigured = true;
    facts.defaultOutput = QStringLiteral("Scarlett 2i2 USB");
    facts.zones = {livingRoom()};
    EXPECT_EQ(verdict(facts), ArmedState(ArmedState::Case::armed));

    facts.settings.speaker = QStringLiteral("living room");
    EXPECT_EQ(verdict(facts), ArmedState(ArmedState::Case::speakerNotConnected));
    facts.settings.speaker = QStringLiteral("Living Room");
    facts.defaultOutput = QStringLiteral("scarlett 2i2 usb");
    EXPECT_EQ(settingsAndVerdict(facts).at(7),
              "WOULD THE KEYS BE ARMED?  no — output is scarlett 2i2 usb, not Scarlett 2i2 USB");
}

} // namespace
