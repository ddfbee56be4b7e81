#pragma once

#include "discovery/TopologyScan.h"
#include "discovery/ZoneState.h"
#include "sonos/SonosDevice.h"

#include <QFuture>
#include <QList>
#include <QSet>
#include <QString>

#include <optional>

// What the household's zone group state says about the players discovery found: which are
// bonded satellites that must never be offered as speakers, which player leads the group a
// player belongs to, and which zone is wired to this computer's optical output. Every
// failure degrades to showing more speakers, never fewer. The asynchronous operations
// answer on the calling thread's event loop.
namespace ZoneTopology {

struct GroupTarget {
    SonosDevice target; // where group volume goes: the group's coordinator, or the device
    bool grouped = false;
    bool operator==(const GroupTarget&) const = default;
};

// The raw GetZoneGroupState answer of one player, or nothing (logged) when it does not
// answer with status 200.
QFuture<std::optional<QString>> zoneGroupState(const SonosDevice& from);

// The devices that may be offered as rooms, in input order: without bonded satellites and
// zone bridges. The players are asked one after another until one answers, the next as soon
// as one refuses or after half a second of silence; when none answers within four seconds,
// the room names and models alone decide (`roomLeaders`). Each household on the network is
// asked for its own players.
QFuture<QList<SonosDevice>> visible(const QList<SonosDevice>& devices);

// One player per room name and household, for when the topology is not there to tell:
// players that never lead a room are left out, and of players that share a room name (a
// home theatre and its satellites, a stereo pair) the home theatre's leader stays, else the
// first in input order.
QList<SonosDevice> roomLeaders(const QList<SonosDevice>& devices);

// Whether `device` still leads its room, asked of the device itself: not when the topology
// marks it as a bonded satellite or a zone bridge, nor when it does not answer at all.
QFuture<bool> leadsRoom(const SonosDevice& device);

// What remains of `devices` once the satellites `answer` marks invisible are taken out —
// or `devices` unchanged when that would leave none. Logs what it hides, once per change.
QList<SonosDevice> withoutSatellites(const QList<SonosDevice>& devices, const QString& answer);

// The group `device` belongs to, asked of the device itself; (device, not grouped) when
// it does not answer.
QFuture<GroupTarget> group(const SonosDevice& device, const QList<SonosDevice>& among);

// The group target read from one answer (the pure half of `group`).
GroupTarget groupTarget(const SonosDevice& device, const QList<SonosDevice>& among,
                        const QString& answer);

// Each device with what it plays now and its model's optical input; sorted by name.
QFuture<QList<ZoneState>> states(const QList<SonosDevice>& devices);

// Names of the zones that could be the one wired to the optical output: those with an
// optical input of their own, else those playing a line input; plus the speaker the user
// configured, when it is among the zones.
QSet<QString> opticalCapable(const QList<ZoneState>& zones,
                             const std::optional<QString>& configured);

// The one zone playing a line input, if exactly one does.
std::optional<QString> playingOverOptical(const QList<ZoneState>& zones);

} // namespace ZoneTopology
