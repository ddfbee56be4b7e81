#include "HouseholdJson.h"

#include <QHostAddress>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QRegularExpression>
#include <QSet>

#include <optional>

namespace emulator {
namespace {

const QStringList transportStates = {QStringLiteral("PLAYING"), QStringLiteral("PAUSED_PLAYBACK"),
                                     QStringLiteral("STOPPED"), QStringLiteral("TRANSITIONING")};

// Thrown inside this file only, caught in parseHousehold, so each check reads as one line.
struct Invalid {
    QString text;
};

[[noreturn]] void fail(const QString& where, const QString& what)
{
    throw Invalid{where + QStringLiteral(": ") + what};
}

void refuseUnknownKeys(const QJsonObject& o, const QString& where, const QStringList& known)
{
    for (const QString& key : o.keys()) {
        if (!known.contains(key))
            fail(where, QStringLiteral("unknown key \"%1\" (expected one of: %2)")
                            .arg(key, known.join(QStringLiteral(", "))));
    }
}

QString stringAt(const QJsonObject& o, const QString& key, const QString& where, bool required,
                 const QString& fallback = {})
{
    const QJsonValue v = o.value(key);
    if (v.isUndefined()) {
        if (required)
            fail(where, QStringLiteral("\"%1\" is missing").arg(key));
        return fallback;
    }
    if (!v.isString())
        fail(where + u'.' + key, QStringLiteral("must be a string"));
    return v.toString();
}

bool boolAt(const QJsonObject& o, const QString& key, const QString& where, bool fallback)
{
    const QJsonValue v = o.value(key);
    if (v.isUndefined())
        return fallback;
    if (!v.isBool())
        fail(where + u'.' + key, QStringLiteral("must be true or false"));
    return v.toBool();
}

int intAt(const QJsonObject& o, const QString& key, const QString& where, int fallback, int min,
          int max)
{
    const QJsonValue v = o.value(key);
    if (v.isUndefined())
        return fallback;
    const double d = v.toDouble(-1e300);
    if (!v.isDouble() || d != static_cast<double>(static_cast<long long>(d)) || d < min || d > max)
        fail(where + u'.' + key,
             QStringLiteral("must be a whole number from %1 to %2").arg(min).arg(max));
    return static_cast<int>(d);
}

QJsonArray arrayAt(const QJsonObject& o, const QString& key, const QString& where)
{
    const QJsonValue v = o.value(key);
    if (v.isUndefined())
        return {};
    if (!v.isArray())
        fail(where + u'.' + key, QStringLiteral("must be a list"));
    return v.toArray();
}

QJsonObject objectIn(const QJsonValue& v, const QString& where)
{
    if (!v.isObject())
        fail(where, QStringLiteral("must be an object"));
    return v.toObject();
}

QString checkedHost(const QString& host, const QString& where)
{
    QHostAddress address;
    if (!address.setAddress(host) || address.protocol() != QHostAddress::IPv4Protocol ||
        !address.isLoopback() || address.toString() != host)
        fail(where,
             QStringLiteral("host \"%1\" is not a loopback address like 127.0.0.11").arg(host));
    return host;
}

QString checkedUid(const QString& uid, const QString& where)
{
    static const QRegularExpression pattern(QStringLiteral("^RINCON_[0-9A-Fa-f]{12}01400$"));
    if (!pattern.match(uid).hasMatch())
        fail(where,
             QStringLiteral("uid \"%1\" is not RINCON_, 12 hexadecimal digits and 01400").arg(uid));
    return uid;
}

Track trackIn(const QJsonObject& o, const QString& where)
{
    refuseUnknownKeys(
        o, where,
        {"uri", "title", "artist", "album", "albumArt", "streamContent", "station", "metadata"});
    Track t;
    t.uri = stringAt(o, QStringLiteral("uri"), where, false);
    t.title = stringAt(o, QStringLiteral("title"), where, false);
    t.artist = stringAt(o, QStringLiteral("artist"), where, false);
    t.album = stringAt(o, QStringLiteral("album"), where, false);
    t.albumArt = stringAt(o, QStringLiteral("albumArt"), where, false);
    t.streamContent = stringAt(o, QStringLiteral("streamContent"), where, false);
    t.station = stringAt(o, QStringLiteral("station"), where, false);
    t.metadata = stringAt(o, QStringLiteral("metadata"), where, false);
    return t;
}

QMap<QString, int> eqIn(const QJsonObject& o, const QString& where)
{
    QMap<QString, int> eq;
    for (auto it = o.begin(); it != o.end(); ++it) {
        if (it.value().isBool())
            eq.insert(it.key(), it.value().toBool() ? 1 : 0);
        else if (it.value().isDouble())
            eq.insert(it.key(), intAt(o, it.key(), where, 0, -15, 15));
        else
            fail(where + u'.' + it.key(), QStringLiteral("must be true, false or a number"));
    }
    return eq;
}

PlayerQuirks quirksIn(const QJsonObject& o, const QString& where)
{
    refuseUnknownKeys(o, where,
                      {"ssdpReplies", "answersSsdp", "describesModelName", "lowerCaseUid",
                       "refusesTopology", "hidesOthers", "fixedVolume",
                       "closesIdleConnectionsAfterMs"});
    PlayerQuirks q;
    q.ssdpReplies = intAt(o, QStringLiteral("ssdpReplies"), where, q.ssdpReplies, 0, 10);
    q.answersSsdp = boolAt(o, QStringLiteral("answersSsdp"), where, q.answersSsdp);
    q.describesModelName = boolAt(o, QStringLiteral("describesModelName"), where, true);
    q.lowerCaseUid = boolAt(o, QStringLiteral("lowerCaseUid"), where, false);
    q.refusesTopology = boolAt(o, QStringLiteral("refusesTopology"), where, false);
    q.hidesOthers = boolAt(o, QStringLiteral("hidesOthers"), where, false);
    q.fixedVolume = boolAt(o, QStringLiteral("fixedVolume"), where, false);
    q.closesIdleConnectionsAfterMs =
        intAt(o, QStringLiteral("closesIdleConnectionsAfterMs"), where, 0, 0, 3600000);
    return q;
}

// The fields of one player as written; references to other players are kept as written
// and resolved once every player is known.
Player playerIn(const QJsonObject& o, const QString& where)
{
    refuseUnknownKeys(o, where,
                      {"host", "uid", "room", "model", "modelNumber", "displayName",
                       "softwareVersion", "volume", "muted", "eq", "transport", "track",
                       "satellites", "channel", "stereoPairOf", "invisible", "zoneBridge", "quirks",
                       "art"});
    Player p;
    p.host = checkedHost(stringAt(o, QStringLiteral("host"), where, true), where);
    p.uid = checkedUid(stringAt(o, QStringLiteral("uid"), where, true), where);
    p.room = stringAt(o, QStringLiteral("room"), where, true);
    if (p.room.trimmed().isEmpty())
        fail(where, QStringLiteral("room must not be empty"));
    p.modelName = stringAt(o, QStringLiteral("model"), where, true);
    if (p.modelName.trimmed().isEmpty())
        fail(where, QStringLiteral("model must not be empty"));
    p.modelNumber = stringAt(o, QStringLiteral("modelNumber"), where, false, QStringLiteral("S12"));
    p.displayName = stringAt(o, QStringLiteral("displayName"), where, false,
                             QString(p.modelName).remove(QStringLiteral("Sonos ")));
    p.softwareVersion =
        stringAt(o, QStringLiteral("softwareVersion"), where, false, p.softwareVersion);
    p.volume = intAt(o, QStringLiteral("volume"), where, p.volume, 0, 100);
    p.muted = boolAt(o, QStringLiteral("muted"), where, false);
    if (o.contains(QStringLiteral("eq")))
        p.eq = eqIn(objectIn(o.value(QStringLiteral("eq")), where + QStringLiteral(".eq")),
                    where + QStringLiteral(".eq"));
    p.transportState = stringAt(o, QStringLiteral("transport"), where, false, p.transportState);
    if (!transportStates.contains(p.transportState))
        fail(where + QStringLiteral(".transport"),
             QStringLiteral("\"%1\" is not one of %2")
                 .arg(p.transportState, transportStates.join(QStringLiteral(", "))));
    if (o.contains(QStringLiteral("track")))
        p.track =
            trackIn(objectIn(o.value(QStringLiteral("track")), where + QStringLiteral(".track")),
                    where + QStringLiteral(".track"));
    p.artFile = stringAt(o, QStringLiteral("art"), where, false);
    for (const QJsonValue& v : arrayAt(o, QStringLiteral("satellites"), where)) {
        if (!v.isString())
            fail(where + QStringLiteral(".satellites"), QStringLiteral("must list UIDs or hosts"));
        p.satellites << v.toString();
    }
    p.channel = stringAt(o, QStringLiteral("channel"), where, false);
    p.stereoPairOf = stringAt(o, QStringLiteral("stereoPairOf"), where, false);
    p.invisible = boolAt(o, QStringLiteral("invisible"), where, false);
    p.zoneBridge = boolAt(o, QStringLiteral("zoneBridge"), where, false);
    if (o.contains(QStringLiteral("quirks")))
        p.quirks =
            quirksIn(objectIn(o.value(QStringLiteral("quirks")), where + QStringLiteral(".quirks")),
                     where + QStringLiteral(".quirks"));
    return p;
}

// A player named by UID (any letter case) or by host, answered as its UID.
QString resolve(const Household& h, const QString& ref, const QString& where)
{
    if (const Player* p = h.playerByUid(ref))
        return p->uid;
    if (const Player* p = h.player(ref))
        return p->uid;
    fail(where, QStringLiteral("\"%1\" is not the UID or host of any player").arg(ref));
}

void checkUnique(const QList<Player>& players)
{
    QSet<QString> hosts, uids;
    for (int i = 0; i < players.size(); ++i) {
        const QString where = QStringLiteral("players[%1]").arg(i);
        if (hosts.contains(players[i].host))
            fail(where, QStringLiteral("host %1 is used by another player").arg(players[i].host));
        if (uids.contains(players[i].uid.toUpper()))
            fail(where, QStringLiteral("uid %1 is used by another player").arg(players[i].uid));
        hosts << players[i].host;
        uids << players[i].uid.toUpper();
    }
}

// Satellites and right-hand speakers of pairs: resolved, owned once, never nested.
void resolveBonds(Household& h)
{
    QSet<QString> bonded;
    QSet<QString> pairedLeft;
    for (int i = 0; i < h.players.size(); ++i) {
        Player& p = h.players[i];
        const QString where = QStringLiteral("players[%1]").arg(i);
        for (QString& s : p.satellites) {
            s = resolve(h, s, where + QStringLiteral(".satellites"));
            if (s == p.uid)
                fail(where + QStringLiteral(".satellites"),
                     QStringLiteral("a player cannot be its own satellite"));
            if (bonded.contains(s))
                fail(where + QStringLiteral(".satellites"),
                     QStringLiteral("%1 is bonded twice").arg(s));
            bonded << s;
        }
        if (!p.stereoPairOf.isEmpty()) {
            p.stereoPairOf = resolve(h, p.stereoPairOf, where + QStringLiteral(".stereoPairOf"));
            if (p.stereoPairOf == p.uid || bonded.contains(p.uid) ||
                pairedLeft.contains(p.stereoPairOf))
                fail(where + QStringLiteral(".stereoPairOf"),
                     QStringLiteral("%1 cannot pair with %2").arg(p.uid, p.stereoPairOf));
            pairedLeft << p.stereoPairOf;
            bonded << p.uid;
        }
    }
    int surround = 0;
    for (int i = 0; i < h.players.size(); ++i) {
        Player& p = h.players[i];
        const bool isSatellite = !h.bondedTo(p.uid).isEmpty() && p.stereoPairOf.isEmpty();
        if (bonded.contains(p.uid))
            p.invisible = true;
        if (!h.bondedTo(h.bondedTo(p.uid)).isEmpty() ||
            (bonded.contains(p.uid) && (!p.satellites.isEmpty())))
            fail(QStringLiteral("players[%1]").arg(i),
                 QStringLiteral("a bonded player cannot have bonds of its own"));
        if (isSatellite && p.channel.isEmpty())
            p.channel = p.modelName.contains(QStringLiteral("Sub"))
                            ? QStringLiteral("SW")
                            : (surround++ % 2 == 0 ? QStringLiteral("LR") : QStringLiteral("RR"));
    }
}

// Groups of visible zones; every zone that no group names plays on its own.
void resolveGroups(Household& h, const QJsonArray& groups)
{
    QSet<QString> grouped;
    for (int i = 0; i < groups.size(); ++i) {
        const QString where = QStringLiteral("groups[%1]").arg(i);
        const QJsonObject o = objectIn(groups[i], where);
        refuseUnknownKeys(o, where, {"coordinator", "members", "id"});
        Group g;
        g.coordinator = resolve(h, stringAt(o, QStringLiteral("coordinator"), where, true),
                                where + QStringLiteral(".coordinator"));
        g.members << g.coordinator;
        for (const QJsonValue& v : arrayAt(o, QStringLiteral("members"), where)) {
            if (!v.isString())
                fail(where + QStringLiteral(".members"), QStringLiteral("must list UIDs or hosts"));
            const QString uid = resolve(h, v.toString(), where + QStringLiteral(".members"));
            if (!g.members.contains(uid))
                g.members << uid;
        }
        for (const QString& uid : g.members) {
            if (!h.bondedTo(uid).isEmpty())
                fail(where, QStringLiteral("%1 is bonded to %2 and plays in its group")
                                .arg(uid, h.bondedTo(uid)));
            if (grouped.contains(uid))
                fail(where, QStringLiteral("%1 is in two groups").arg(uid));
            grouped << uid;
        }
        g.id = stringAt(o, QStringLiteral("id"), where, false,
                        QStringLiteral("%1:%2").arg(g.coordinator).arg(100 + 7 * i));
        h.groups << g;
    }
    for (const Player& p : h.players) {
        if (!grouped.contains(p.uid) && h.bondedTo(p.uid).isEmpty())
            h.groups << Group{QStringLiteral("%1:%2").arg(p.uid).arg(100 + 7 * h.groups.size()),
                              p.uid,
                              {p.uid},
                              {}};
    }
}

Household householdIn(const QJsonObject& root)
{
    refuseUnknownKeys(root, QStringLiteral("household file"), {"household", "players", "groups"});
    Household h;
    h.id = stringAt(root, QStringLiteral("household"), QStringLiteral("household file"), true);
    if (!h.id.startsWith(QStringLiteral("Sonos_")))
        fail(QStringLiteral("household"),
             QStringLiteral("\"%1\" does not begin with Sonos_").arg(h.id));
    const QJsonArray players =
        arrayAt(root, QStringLiteral("players"), QStringLiteral("household file"));
    if (players.isEmpty())
        fail(QStringLiteral("players"), QStringLiteral("a household needs at least one player"));
    for (int i = 0; i < players.size(); ++i) {
        const QString where = QStringLiteral("players[%1]").arg(i);
        h.players << playerIn(objectIn(players[i], where), where);
    }
    checkUnique(h.players);
    resolveBonds(h);
    resolveGroups(h, arrayAt(root, QStringLiteral("groups"), QStringLiteral("household file")));
    return h;
}

} // namespace

Expected<Household, QString> parseHousehold(const QByteArray& json)
{
    QJsonParseError error;
    const QJsonDocument doc = QJsonDocument::fromJson(json, &error);
    if (error.error != QJsonParseError::NoError)
        return QStringLiteral("not valid JSON at byte %1: %2")
            .arg(error.offset)
            .arg(error.errorString());
    if (!doc.isObject())
        return QStringLiteral("the household file must hold one JSON object");
    try {
        return householdIn(doc.object());
    } catch (const Invalid& invalid) {
        return invalid.text;
    }
}

} // namespace emulator
