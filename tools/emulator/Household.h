#pragma once

#include "emulator/Emulator.h"

#include <QList>
#include <QMap>
#include <QString>
#include <QStringList>

namespace emulator {

// One zone player and everything it would say about itself.
struct Player {
    QString host;        // 127.0.0.x
    QString uid;         // RINCON_ + 12 hex digits + 01400
    QString room;        // "Living Room"
    QString modelName;   // "Sonos Arc"
    QString modelNumber; // "S19"
    QString displayName; // "Arc"
    QString softwareVersion = QStringLiteral("79.1-56030");
    int volume = 20;
    bool muted = false;
    QMap<QString, int> eq; // only the EQ types this model has ("NightMode", "DialogLevel", ...)
    QString transportState = QStringLiteral("STOPPED");
    Track track;
    QString artFile;         // as the household file names it; read into `art` on loading
    QByteArray art;          // served at /getaa; empty: the emulator's own small PNG
    QStringList satellites;  // UIDs bonded to this home-theatre primary
    QString channel;         // a satellite's place in the set: "SW", "LR", "RR"
    QString stereoPairOf;    // UID of the left speaker when this is the right one of a pair
    bool invisible = false;  // hidden from the user: satellites, right of a stereo pair
    bool zoneBridge = false; // a Boost or Bridge: on the network, never a room
    PlayerQuirks quirks;
    bool online = true;
    int bootSeq = 33;
};

// The visible zones that play together; the first of `members` is not special, the
// coordinator is.
struct Group {
    QString id; // "RINCON_…:412"
    QString coordinator;
    QStringList members; // UIDs of the zones, coordinator included; no satellites
    // The members' volumes when the group volume was last snapshot: group volume changes
    // scale these, so that members keep their ratios through a slide down and back up.
    QMap<QString, int> volumeSnapshot;
};

// The household as a whole: its players, how they are grouped and bonded.
struct Household {
    QString id; // "Sonos_…"
    QList<Player> players;
    QList<Group> groups;

    Player* player(const QString& host);
    const Player* player(const QString& host) const;
    Player* playerByUid(const QString& uid);
    const Player* playerByUid(const QString& uid) const;

    // The home-theatre primary a satellite is bonded to, or the left speaker of a pair;
    // empty for a player that stands on its own.
    QString bondedTo(const QString& uid) const;
    // The group a player plays in; satellites and paired speakers belong to their
    // primary's group. Null for a player in no group.
    Group* groupOf(const QString& uid);
    const Group* groupOf(const QString& uid) const;
    bool isCoordinator(const QString& uid) const;
    QString coordinatorOf(const QString& uid) const;
};

} // namespace emulator
