#include "app/SpeakerChoices.h"

#include "discovery/AirPlayBrowser.h"
#include "discovery/TopologyScan.h"
#include "discovery/ZoneScan.h"
#include "discovery/ZoneTopology.h"
#include "support/ReadyFuture.h"
#include "support/UiText.h"

#include <QCollator>
#include <QHash>

#include <algorithm>

namespace {

constexpr double kDiscoveryTimeout = 3.0;
constexpr qint64 kLifetimeSeconds = 60;

struct Member {
    QString room;
    bool invisible = false;
    bool homeTheatre = false;
    bool stereoPair = false;
};

// Every zone group member of the topology by upper-cased UID. Satellites are not members:
// their room shows through the home theatre's channel map instead.
QHash<QString, Member> members(const QString& text)
{
    QHash<QString, Member> found;
    for (const QString& tag : ZoneTopology::tags(u"ZoneGroupMember", text)) {
        const std::optional<QString> uid = ZoneTopology::attribute(u"UUID", tag);
        if (!uid)
            continue;
        Member member;
        member.room = ZoneTopology::attribute(u"ZoneName", tag).value_or(QString());
        member.invisible = ZoneTopology::attribute(u"Invisible", tag) == QStringLiteral("1");
        member.homeTheatre = ZoneTopology::attribute(u"HTSatChanMapSet", tag).has_value();
        member.stereoPair = ZoneTopology::attribute(u"ChannelMapSet", tag).has_value();
        found.insert(uid->toUpper(), member);
    }
    return found;
}

QString roomTitle(const SonosDevice& device, const QString& text, const QHash<QString, Member>& all)
{
    const Member self = all.value(device.uid.toUpper());
    QString title = device.name;
    if (self.homeTheatre)
        title = uiText("%1 (home theatre)").arg(title);
    else if (self.stereoPair)
        title = uiText("%1 (stereo pair)").arg(title);

    // Other rooms playing along: bonded players of this room do not count.
    QSet<QString> others;
    if (const auto group = ZoneTopology::groupInfo(device.uid, text))
        for (const QString& uid : group->members) {
            const Member member = all.value(uid);
            if (!member.invisible && !member.room.isEmpty() && member.room != device.name)
                others.insert(member.room);
        }
    if (!others.isEmpty())
        title = uiText("%1 + %2").arg(title).arg(others.size());
    return title;
}

} // namespace

QList<SpeakerChoice> speakerChoices(const QList<ZoneState>& zones, const QString& topology,
                                    const QSet<QString>& opticalCapable)
{
    const QString text = ZoneTopology::unescape(topology);
    const QHash<QString, Member> all = members(text);

    struct Room {
        QString title;
        const SonosDevice* device;
    };
    QList<Room> rooms;
    for (const ZoneState& zone : zones)
        rooms.append({roomTitle(zone.device, text, all), &zone.device});
    // The C locale compares code points ("Room 10" before "room 2"): people read names in
    // English order then.
    QLocale locale;
    if (locale.language() == QLocale::C)
        locale = QLocale(QLocale::English);
    QCollator collator(locale);
    collator.setNumericMode(true);
    collator.setCaseSensitivity(Qt::CaseInsensitive);
    std::stable_sort(rooms.begin(), rooms.end(), [&collator](const Room& a, const Room& b) {
        return collator.compare(a.title, b.title) < 0;
    });

    QList<SpeakerChoice> choices;
    for (const Room& room : rooms) {
        const QString& name = room.device->name;
        choices.append(
            {room.title, name,
             opticalCapable.contains(name) ? Settings::Route::Optical : Settings::Route::Network});
        if (room.device->airplayReceiverID())
            choices.append(
                {uiText("%1 via AirPlay").arg(room.title), name, Settings::Route::Airplay});
    }
    return choices;
}

SpeakerChoices::SpeakerChoices(SonosDiscovery::Coordinator& discovery, AirPlayBrowser* airplay,
                               QObject* parent)
    : QObject(parent)
    , m_discovery(discovery)
    , m_airplay(airplay)
    , m_stamp(QDateTime::fromMSecsSinceEpoch(0))
{
}

void SpeakerChoices::refresh(bool force, const QString& configured)
{
    if (m_inFlight ||
        (!force && m_stamp.secsTo(QDateTime::currentDateTimeUtc()) <= kLifetimeSeconds))
        return;
    m_inFlight = true;
    ZoneScan::zoneStates(m_discovery, kDiscoveryTimeout)
        .then(this, [this, configured](const QList<ZoneState>& zones) {
            if (zones.isEmpty()) {
                m_inFlight = false;
                return;
            }
            // One player of each household tells how that household's rooms are bonded
            // and grouped.
            QList<QFuture<std::optional<QString>>> answers;
            QSet<QString> asked;
            for (const ZoneState& zone : zones)
                if (!asked.contains(zone.device.household)) {
                    asked.insert(zone.device.household);
                    answers.append(ZoneTopology::zoneGroupState(zone.device));
                }
            // Asked at the same time as the topology; both are needed before the menu changes.
            const QFuture<bool> ambiguity = airPlayAmbiguity(zones, configured);
            QtFuture::whenAll(answers.begin(), answers.end())
                .then(this, [this, zones, configured,
                             ambiguity](const QList<QFuture<std::optional<QString>>>& done) {
                    QString topology;
                    for (const auto& answer : done)
                        topology += answer.result().value_or(QString());
                    QFuture<bool> answer = ambiguity;
                    answer.then(this, [this, zones, configured, topology](bool ambiguous) {
                        adopt(zones, topology, configured, ambiguous);
                    });
                });
        });
}

QFuture<bool> SpeakerChoices::airPlayAmbiguity(const QList<ZoneState>& zones,
                                               const QString& configured)
{
    const auto chosen = std::find_if(zones.begin(), zones.end(), [&](const ZoneState& zone) {
        return zone.device.name == configured;
    });
    if (!m_airplay || configured.isEmpty() || chosen == zones.end())
        return readyFuture(false);
    return m_airplay->isAmbiguous(configured, chosen->device.airplayReceiverID());
}

void SpeakerChoices::adopt(const QList<ZoneState>& zones, const QString& topology,
                           const QString& configured, bool ambiguousAirPlayName)
{
    m_ambiguousAirPlayName = ambiguousAirPlayName;
    m_inFlight = false;
    m_zones = zones;
    m_opticalCapable = ZoneTopology::opticalCapable(zones, configured);
    m_playingOverOptical = ZoneTopology::playingOverOptical(zones);
    m_choices = speakerChoices(zones, topology, m_opticalCapable);
    m_stamp = QDateTime::currentDateTimeUtc();
    emit refreshed();
}
