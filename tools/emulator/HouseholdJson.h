#pragma once

#include "Household.h"
#include "support/Expected.h"

#include <QByteArray>
#include <QString>

namespace emulator {

// Reads a household description (JSON) and checks that it describes a possible
// household. The error text names the offending entry ("players[2].uid: …").
//
// {
//   "household": "Sonos_…",
//   "players": [{
//     "host": "127.0.0.11", "uid": "RINCON_38420B91A2C401400",       (required)
//     "room": "Living Room", "model": "Sonos Arc",                     (required)
//     "modelNumber": "S19", "displayName": "Arc", "softwareVersion": "79.1-56030",
//     "volume": 25, "muted": false, "transport": "PLAYING" | "PAUSED_PLAYBACK" | "STOPPED",
//     "eq": {"NightMode": false, "DialogLevel": true},   (only the types the model has)
//     "track": {"uri": "x-sonos-htastream:RINCON_…:spdif", "title", "artist", "album", "albumArt",
//               "streamContent": "Artist - Title", "station": "Radio X",   (radio streams)
//               "metadata": "<DIDL-Lite …"},      (sent instead of the metadata made from these)
//     "art": "cover.jpg",                     (served at /getaa; relative to the household file)
//     "satellites": ["RINCON_…" or host, …],  (bonded to this home-theatre primary; invisible)
//     "channel": "SW" | "LR" | "RR",          (a satellite's place; guessed when absent)
//     "stereoPairOf": "RINCON_…" or host,     (this is the invisible right speaker of a pair)
//     "invisible": true,                      (hidden without being bonded)
//     "quirks": {"ssdpReplies": 3, "answersSsdp": false, "describesModelName": false,
//                "lowerCaseUid": true}
//   }, …],
//   "groups": [{"coordinator": uid or host, "members": [uid or host, …], "id": "…"}]
// }
// Zones that no group names play on their own; bonded players follow their primary.
Expected<Household, QString> parseHousehold(const QByteArray& json);

} // namespace emulator
