#include "ZonePlayerActions.h"

#include "SoapEnvelope.h"
#include "TopologyXml.h"

#include <QRegularExpression>

#include <algorithm>
#include <climits>
#include <cmath>
#include <functional>
#include <optional>

namespace emulator {
namespace {

using Outputs = QList<std::pair<QString, QString>>;

// An action failing with a UPnP error; thrown by the argument checks, caught once.
struct Failure {
    int code;
};

// Everything one action needs: the household, the player it was sent to, the call.
struct Context {
    Household& household;
    Player& player;
    const SoapCall& call;
    quint16 port;

    QString arg(const QString& name) const
    {
        if (!call.arguments.contains(name))
            throw Failure{UpnpError::InvalidArgs};
        return call.arguments.value(name);
    }
    int intArg(const QString& name, int min, int max) const
    {
        static const QRegularExpression integer(QStringLiteral("^[+-]?[0-9]{1,9}$"));
        const QString text = arg(name).trimmed();
        if (!integer.match(text).hasMatch())
            throw Failure{UpnpError::InvalidArgs};
        const int value = text.toInt();
        if (value < min || value > max)
            throw Failure{UpnpError::ArgumentValueOutOfRange};
        return value;
    }
    bool boolArg(const QString& name) const
    {
        const QString text = arg(name).trimmed().toLower();
        if (text == u"1" || text == u"true" || text == u"yes")
            return true;
        if (text == u"0" || text == u"false" || text == u"no")
            return false;
        throw Failure{UpnpError::InvalidArgs};
    }
    void requireInstance() const
    {
        if (intArg(QStringLiteral("InstanceID"), INT_MIN / 2, INT_MAX / 2) != 0)
            throw Failure{UpnpError::InvalidInstanceId};
    }
    void requireMasterChannel() const
    {
        if (arg(QStringLiteral("Channel")) != u"Master")
            throw Failure{UpnpError::InvalidArgs};
    }
    // Group rendering and transport belong to the group's coordinator.
    Player& coordinator() const
    {
        Player* c = household.playerByUid(household.coordinatorOf(player.uid));
        return c ? *c : player;
    }
    void requireCoordinator() const
    {
        if (!household.isCoordinator(player.uid))
            throw Failure{UpnpError::TransitionNotAvailable};
    }
    Group* group() const { return household.groupOf(player.uid); }
    // The zones whose volumes make up the group volume: the visible members.
    QList<Player*> groupZones() const { return volumeZones(household, player.uid); }
};

QString flag(bool on)
{
    return on ? QStringLiteral("1") : QStringLiteral("0");
}

bool allMuted(const QList<Player*>& zones)
{
    return !zones.isEmpty() &&
           std::all_of(zones.begin(), zones.end(), [](const Player* p) { return p->muted; });
}

int groupVolume(const QList<Player*>& zones)
{
    if (zones.isEmpty())
        return 0;
    double sum = 0;
    for (const Player* p : zones)
        sum += p->volume;
    return static_cast<int>(std::lround(sum / zones.size()));
}

// Like a household does it: members keep their balance, scaled towards the new level from
// the volumes of the last snapshot (else from where they stand now); from silence every
// member starts at the new level.
void setGroupVolume(const QList<Player*>& zones, int wanted, const QMap<QString, int>& snapshot)
{
    double sum = 0;
    for (const Player* p : zones)
        sum += snapshot.value(p->uid, p->volume);
    const double base = zones.isEmpty() ? 0 : sum / zones.size();
    for (Player* p : zones) {
        const int from = snapshot.value(p->uid, p->volume);
        const int scaled =
            base == 0 ? wanted : static_cast<int>(std::lround(from * double(wanted) / base));
        p->volume = std::clamp(scaled, 0, 100);
    }
}

// A radio stream: the station sends the current song, which the player reports as the
// track's stream content, and the player names the station in its media info.
bool isStream(const QString& uri)
{
    static const QStringList schemes = {QStringLiteral("x-sonosapi-stream:"),
                                        QStringLiteral("x-rincon-mp3radio:"),
                                        QStringLiteral("aac:"), QStringLiteral("x-sonosapi-hls:")};
    return std::any_of(schemes.begin(), schemes.end(),
                       [&uri](const QString& scheme) { return uri.startsWith(scheme); });
}

bool isLineInput(const QString& uri)
{
    return uri.contains(QStringLiteral("htastream")) ||
           uri.contains(QStringLiteral("x-rincon-stream"));
}

QString element(const char* name, const QString& text)
{
    return QStringLiteral("<%1>%2</%1>").arg(QLatin1String(name), escapeXml(text));
}

QString didlDocument(const QString& item)
{
    return QStringLiteral("<DIDL-Lite xmlns:dc=\"http://purl.org/dc/elements/1.1/\" "
                          "xmlns:upnp=\"urn:schemas-upnp-org:metadata-1-0/upnp/\" "
                          "xmlns:r=\"urn:schemas-rinconnetworks-com:metadata-1-0/\" "
                          "xmlns=\"urn:schemas-upnp-org:metadata-1-0/DIDL-Lite/\">"
                          "<item id=\"-1\" parentID=\"-1\" restricted=\"true\">") +
           item + QStringLiteral("</item></DIDL-Lite>");
}

QString didlLite(const Track& t)
{
    if (!t.metadata.isEmpty())
        return t.metadata;
    if (t.uri.isEmpty() && t.title.isEmpty())
        return {};
    const bool stream = isStream(t.uri);
    QString item = QStringLiteral("<res protocolInfo=\"sonos.com-http:*:audio/mpeg:*\">") +
                   escapeXml(t.uri) + QStringLiteral("</res>") +
                   element("r:streamContent", stream ? t.streamContent : QString());
    if (!t.albumArt.isEmpty())
        item += element("upnp:albumArtURI", t.albumArt);
    // A stream's track carries no title of its own: players put the stream's address there.
    item += element("dc:title", stream && t.title.isEmpty() ? t.uri : t.title);
    item += stream ? QStringLiteral("<upnp:class>object.item</upnp:class>")
                   : QStringLiteral("<upnp:class>object.item.audioItem.musicTrack</upnp:class>");
    if (!t.artist.isEmpty())
        item += element("dc:creator", t.artist);
    if (!t.album.isEmpty())
        item += element("upnp:album", t.album);
    return didlDocument(item);
}

// What GetMediaInfo says of the source: a stream is its own source and carries the
// station's name; a track plays from the queue, whose metadata is empty.
std::pair<QString, QString> mediaSource(const Player& player)
{
    const Track& t = player.track;
    if (t.uri.isEmpty())
        return {};
    if (isStream(t.uri))
        return {t.uri,
                didlDocument(element("dc:title", t.station) +
                             QStringLiteral("<upnp:class>object.item.audioItem.audioBroadcast"
                                            "</upnp:class>"))};
    if (isLineInput(t.uri))
        return {t.uri, QString()};
    return {QStringLiteral("x-rincon-queue:%1#0").arg(player.uid), QString()};
}

// The values an EQ type takes. Soundbars since the Arc Ultra switch speech enhancement with
// "SpeechEnhanceEnabled" and make "DialogLevel" a level from 0 to 4; before them
// "DialogLevel" was the switch. Any other type is a level from -15 to 15.
std::pair<int, int> eqRange(const Player& player, const QString& type)
{
    if (type == u"DialogLevel")
        return player.eq.contains(QStringLiteral("SpeechEnhanceEnabled")) ? std::pair{0, 4}
                                                                          : std::pair{0, 1};
    if (type == u"NightMode" || type == u"SpeechEnhanceEnabled")
        return {0, 1};
    return {-15, 15};
}

Outputs renderingControl(const Context& c)
{
    c.requireInstance();
    const QString& a = c.call.action;
    const bool fixed = c.player.quirks.fixedVolume;
    if (a == u"GetOutputFixed")
        return {{QStringLiteral("CurrentFixed"), flag(fixed)}};
    if (a == u"GetVolume") {
        c.requireMasterChannel();
        return {{QStringLiteral("CurrentVolume"), QString::number(fixed ? 100 : c.player.volume)}};
    }
    if ((a == u"SetVolume" || a == u"SetRelativeVolume") && fixed)
        throw Failure{UpnpError::ActionFailed};
    if (a == u"SetVolume") {
        c.requireMasterChannel();
        c.player.volume = c.intArg(QStringLiteral("DesiredVolume"), 0, 100);
        return {};
    }
    if (a == u"SetRelativeVolume") {
        c.requireMasterChannel();
        const int change = c.intArg(QStringLiteral("Adjustment"), -100, 100);
        c.player.volume = std::clamp(c.player.volume + change, 0, 100);
        return {{QStringLiteral("NewVolume"), QString::number(c.player.volume)}};
    }
    if (a == u"GetMute") {
        c.requireMasterChannel();
        return {{QStringLiteral("CurrentMute"), flag(c.player.muted)}};
    }
    if (a == u"SetMute") {
        c.requireMasterChannel();
        c.player.muted = c.boolArg(QStringLiteral("DesiredMute"));
        return {};
    }
    if (a == u"GetEQ" || a == u"SetEQ") {
        const QString type = c.arg(QStringLiteral("EQType"));
        if (!c.player.eq.contains(type))
            throw Failure{UpnpError::InvalidArgs};
        if (a == u"GetEQ")
            return {{QStringLiteral("CurrentValue"), QString::number(c.player.eq.value(type))}};
        c.player.eq[type] = c.intArg(QStringLiteral("DesiredValue"), eqRange(c.player, type).first,
                                     eqRange(c.player, type).second);
        return {};
    }
    throw Failure{UpnpError::InvalidAction};
}

Outputs groupRenderingControl(const Context& c)
{
    c.requireInstance();
    c.requireCoordinator();
    const QString& a = c.call.action;
    const QList<Player*> zones = c.groupZones();
    if (a == u"GetGroupVolume")
        return {{QStringLiteral("CurrentVolume"), QString::number(groupVolume(zones))}};
    Group* group = c.group();
    const QMap<QString, int> snapshot = group ? group->volumeSnapshot : QMap<QString, int>();
    if (a == u"SetGroupVolume") {
        setGroupVolume(zones, c.intArg(QStringLiteral("DesiredVolume"), 0, 100), snapshot);
        return {};
    }
    if (a == u"SetRelativeGroupVolume") {
        const int change = c.intArg(QStringLiteral("Adjustment"), -100, 100);
        setGroupVolume(zones, std::clamp(groupVolume(zones) + change, 0, 100), snapshot);
        return {{QStringLiteral("NewVolume"), QString::number(groupVolume(zones))}};
    }
    if (a == u"GetGroupMute")
        return {{QStringLiteral("CurrentMute"), flag(allMuted(zones))}};
    if (a == u"SetGroupMute") {
        const bool muted = c.boolArg(QStringLiteral("DesiredMute"));
        for (Player* p : zones)
            p->muted = muted;
        return {};
    }
    if (a == u"SnapshotGroupVolume") {
        if (group) {
            group->volumeSnapshot.clear();
            for (const Player* p : zones)
                group->volumeSnapshot.insert(p->uid, p->volume);
        }
        return {};
    }
    throw Failure{UpnpError::InvalidAction};
}

// Members of a group follow their coordinator's transport, so they report its state and
// pass play and pause on to it.
Outputs avTransport(const Context& c)
{
    c.requireInstance();
    const QString& a = c.call.action;
    Player& leader = c.coordinator();
    if (a == u"GetTransportInfo")
        return {{QStringLiteral("CurrentTransportState"), leader.transportState},
                {QStringLiteral("CurrentTransportStatus"), QStringLiteral("OK")},
                {QStringLiteral("CurrentSpeed"), QStringLiteral("1")}};
    if (a == u"Play") {
        if (c.arg(QStringLiteral("Speed")) != u"1")
            throw Failure{UpnpError::InvalidArgs};
        if (leader.track.uri.isEmpty())
            throw Failure{UpnpError::TransitionNotAvailable};
        leader.transportState = QStringLiteral("PLAYING");
        return {};
    }
    if (a == u"Pause" || a == u"Stop") {
        if (leader.transportState != u"PLAYING" && a == u"Pause")
            throw Failure{UpnpError::TransitionNotAvailable};
        leader.transportState =
            a == u"Pause" ? QStringLiteral("PAUSED_PLAYBACK") : QStringLiteral("STOPPED");
        return {};
    }
    if (a == u"Next" || a == u"Previous") {
        if (leader.track.uri.isEmpty())
            throw Failure{UpnpError::TransitionNotAvailable};
        return {};
    }
    if (a == u"GetPositionInfo") {
        const Track& t = leader.track;
        const bool stream = isLineInput(t.uri);
        const QString time =
            t.uri.isEmpty() || stream ? QStringLiteral("0:00:00") : QStringLiteral("0:01:07");
        return {
            {QStringLiteral("Track"), t.uri.isEmpty() ? QStringLiteral("0") : QStringLiteral("1")},
            {QStringLiteral("TrackDuration"), stream || isStream(t.uri) || t.uri.isEmpty()
                                                  ? QStringLiteral("0:00:00")
                                                  : QStringLiteral("0:03:45")},
            {QStringLiteral("TrackMetaData"), didlLite(t)},
            {QStringLiteral("TrackURI"), t.uri},
            {QStringLiteral("RelTime"), time},
            {QStringLiteral("AbsTime"), QStringLiteral("NOT_IMPLEMENTED")},
            {QStringLiteral("RelCount"), QStringLiteral("2147483647")},
            {QStringLiteral("AbsCount"), QStringLiteral("2147483647")}};
    }
    if (a == u"GetMediaInfo") {
        const auto [uri, metadata] = mediaSource(leader);
        const bool queue = !uri.isEmpty() && !isStream(uri) && !isLineInput(uri);
        return {{QStringLiteral("NrTracks"), queue ? QStringLiteral("1") : QStringLiteral("0")},
                {QStringLiteral("MediaDuration"), QStringLiteral("NOT_IMPLEMENTED")},
                {QStringLiteral("CurrentURI"), uri},
                {QStringLiteral("CurrentURIMetaData"), metadata},
                {QStringLiteral("NextURI"), QString()},
                {QStringLiteral("NextURIMetaData"), QString()},
                {QStringLiteral("PlayMedium"), QStringLiteral("NETWORK")},
                {QStringLiteral("RecordMedium"), QStringLiteral("NOT_IMPLEMENTED")},
                {QStringLiteral("WriteStatus"), QStringLiteral("NOT_IMPLEMENTED")}};
    }
    throw Failure{UpnpError::InvalidAction};
}

Outputs zoneGroupTopology(const Context& c)
{
    const QString& a = c.call.action;
    if (a == u"GetZoneGroupState" && c.player.quirks.refusesTopology)
        throw Failure{UpnpError::ActionFailed};
    if (a == u"GetZoneGroupState" && c.player.quirks.hidesOthers) {
        Household forged = c.household;
        for (Player& p : forged.players)
            p.invisible = p.uid != c.player.uid;
        return {{QStringLiteral("ZoneGroupState"), zoneGroupStateXml(forged, c.port)}};
    }
    if (a == u"GetZoneGroupState")
        return {{QStringLiteral("ZoneGroupState"), zoneGroupStateXml(c.household, c.port)}};
    if (a == u"GetZoneGroupAttributes") {
        const Group* g = c.household.groupOf(c.player.uid);
        QStringList members = g ? g->members : QStringList{c.player.uid};
        return {{QStringLiteral("CurrentZoneGroupName"), c.player.room},
                {QStringLiteral("CurrentZoneGroupID"), g ? g->id : QString()},
                {QStringLiteral("CurrentZonePlayerUUIDsInGroup"), members.join(u',')},
                {QStringLiteral("CurrentMuseHouseholdId"), c.household.id + QStringLiteral(".0")}};
    }
    throw Failure{UpnpError::InvalidAction};
}

using Handler = std::function<Outputs(const Context&)>;

Handler handlerFor(const QString& service)
{
    if (service == ServiceType::renderingControl)
        return renderingControl;
    if (service == ServiceType::groupRenderingControl)
        return groupRenderingControl;
    if (service == ServiceType::avTransport)
        return avTransport;
    return zoneGroupTopology;
}

} // namespace

QList<Player*> volumeZones(Household& household, const QString& uid)
{
    QList<Player*> zones;
    if (const Group* g = household.groupOf(uid)) {
        for (const QString& member : g->members) {
            Player* p = household.playerByUid(member);
            if (p && p->online && !p->invisible && !p->quirks.fixedVolume)
                zones << p;
        }
    }
    return zones;
}

GroupLevel groupLevel(Household& household, const QString& uid)
{
    const QList<Player*> zones = volumeZones(household, uid);
    return {groupVolume(zones), allMuted(zones)};
}

QString serviceAtControlPath(const QByteArray& path)
{
    if (path == "/MediaRenderer/RenderingControl/Control")
        return ServiceType::renderingControl;
    if (path == "/MediaRenderer/GroupRenderingControl/Control")
        return ServiceType::groupRenderingControl;
    if (path == "/MediaRenderer/AVTransport/Control")
        return ServiceType::avTransport;
    if (path == "/ZoneGroupTopology/Control")
        return ServiceType::zoneGroupTopology;
    return {};
}

HttpAnswer answerControl(Household& household, const QString& host, const Request& request,
                         quint16 port)
{
    Player* player = household.player(host);
    const QString service = serviceAtControlPath(request.path);
    if (!player || service.isEmpty())
        return plainStatus(404);
    const Expected<SoapCall, int> call = readSoapCall(request.header("SOAPACTION"), request.body);
    if (!call)
        return upnpFault(call.error());
    if (call->service != service)
        return upnpFault(UpnpError::InvalidAction);
    try {
        return soapResponse(*call, handlerFor(service)(Context{household, *player, *call, port}));
    } catch (const Failure& failure) {
        return upnpFault(failure.code);
    }
}

} // namespace emulator
