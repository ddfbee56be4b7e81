// The speaker menu's entries, from a household's zone group state as a player writes it.
#include "app/SpeakerChoices.h"

#include "common/QtPrinters.h"
#include "discovery/ZoneTopology.h"
#include "emulator/HouseholdJson.h"
#include "emulator/TopologyXml.h"

#include <gtest/gtest.h>

namespace {

// A home theatre with its sub, a stereo pair, the kitchen leading a group with the dining
// room, and rooms whose names sort by number and regardless of case.
const QByteArray household = R"({
  "household": "Sonos_Speaker_Choices_Test",
  "players": [
    {"host": "127.0.0.11", "uid": "RINCON_000E58C0A1B101400", "room": "Living Room",
     "model": "Sonos Arc", "satellites": ["127.0.0.12"]},
    {"host": "127.0.0.12", "uid": "RINCON_000E58C0A1B201400", "room": "Living Room",
     "model": "Sonos Sub"},
    {"host": "127.0.0.13", "uid": "RINCON_000E58C0A1B301400", "room": "Lounge",
     "model": "Sonos Five"},
    {"host": "127.0.0.14", "uid": "RINCON_000E58C0A1B401400", "room": "Lounge",
     "model": "Sonos Five", "stereoPairOf": "127.0.0.13"},
    {"host": "127.0.0.15", "uid": "RINCON_000E58C0A1B501400", "room": "Kitchen",
     "model": "Sonos One"},
    {"host": "127.0.0.16", "uid": "RINCON_000E58C0A1B601400", "room": "Dining Room",
     "model": "Sonos One"},
    {"host": "127.0.0.17", "uid": "RINCON_000E58C0A1B701400", "room": "Room 10",
     "model": "Sonos Era 100"},
    {"host": "127.0.0.18", "uid": "RINCON_000E58C0A1B801400", "room": "room 2",
     "model": "Sonos Era 100"},
    {"host": "127.0.0.19", "uid": "RINCON_000E58C0A1B901400", "room": "Attic", "model": "Sonos Play:1"}
  ],
  "groups": [
    {"coordinator": "127.0.0.15", "members": ["127.0.0.15", "127.0.0.16"]}
  ]
})";

TEST(SpeakerChoices, RoomsAreTitledByBondAndGroupSortedAsReadAndOfferTheirRoutes)
{
    const auto parsed = emulator::parseHousehold(household);
    ASSERT_TRUE(parsed) << parsed.error().toStdString();
    QList<ZoneState> zones;
    for (const emulator::Player& p : parsed->players)
        if (!p.invisible)
            zones.append({SonosDevice{p.host, p.uid, p.room, p.modelName}, false,
                          p.modelName == QStringLiteral("Sonos Arc")});
    // A player whose identity names no AirPlay receiver is offered without AirPlay.
    zones.last().device.uid = QStringLiteral("NOT_A_RINCON");
    const QSet<QString> optical = ZoneTopology::opticalCapable(zones, std::nullopt);
    const QString topology = emulator::zoneGroupStateXml(*parsed, 1400);

    // Each entry as "title | name | route".
    auto entries = [](const QList<SpeakerChoice>& choices) {
        QStringList lines;
        for (const SpeakerChoice& c : choices)
            lines << c.title + QStringLiteral(" | ") + c.name + QStringLiteral(" | ") +
                         Settings::routeName(c.route);
        return lines;
    };
    EXPECT_EQ(entries(speakerChoices(zones, topology, optical)),
              (QStringList{
                  "Attic | Attic | network",
                  "Dining Room + 1 | Dining Room | network",
                  "Dining Room + 1 via AirPlay | Dining Room | airplay",
                  "Kitchen + 1 | Kitchen | network",
                  "Kitchen + 1 via AirPlay | Kitchen | airplay",
                  "Living Room (home theatre) | Living Room | optical",
                  "Living Room (home theatre) via AirPlay | Living Room | airplay",
                  "Lounge (stereo pair) | Lounge | network",
                  "Lounge (stereo pair) via AirPlay | Lounge | airplay",
                  "room 2 | room 2 | network",
                  "room 2 via AirPlay | room 2 | airplay",
                  "Room 10 | Room 10 | network",
                  "Room 10 via AirPlay | Room 10 | airplay",
              }));
    // Without the topology the rooms keep their plain names.
    EXPECT_EQ(entries(speakerChoices(zones, QString(), optical)).mid(3, 3),
              (QStringList{"Kitchen | Kitchen | network", "Kitchen via AirPlay | Kitchen | airplay",
                           "Living Room | Living Room | optical"}));
}

} // namespace
