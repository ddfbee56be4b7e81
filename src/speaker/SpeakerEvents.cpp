#include "speaker/SpeakerEvents.h"

#include "discovery/TopologyScan.h"
#include "sonos/EventSubscription.h"
#include "sonos/Tags.h"
#include "sonos/XmlText.h"
#include "speaker/SpeakerController.h"
#include "support/Log.h"

namespace {

const QString renderingPath = QStringLiteral("/MediaRenderer/RenderingControl/Event");
const QString groupRenderingPath = QStringLiteral("/MediaRenderer/GroupRenderingControl/Event");
const QString transportPath = QStringLiteral("/MediaRenderer/AVTransport/Event");
const QString topologyPath = QStringLiteral("/ZoneGroupTopology/Event");

// The LastChange document of an event body: an escaped <Event> inside the property set.
std::optional<QString> lastChange(const QByteArray& body)
{
    const std::optional<QString> escaped = Tags::element(u"LastChange", QString::fromUtf8(body));
    if (!escaped)
        return std::nullopt;
    return XmlText::unescape(*escaped);
}

// The val="…" of the first <name …> tag whose other attributes include `channel`, when
// given; nothing when there is none.
std::optional<QString> value(const QString& document, QStringView name, QStringView channel = {})
{
    for (const QString& tag : ZoneTopology::tags(name, document)) {
        if (!channel.isEmpty() && ZoneTopology::attribute(u"channel", tag) != channel)
            continue;
        return ZoneTopology::attribute(u"val", tag);
    }
    return std::nullopt;
}

std::optional<int> level(const std::optional<QString>& text)
{
    bool ok = false;
    const int number = text ? text->toInt(&ok) : -1;
    return ok && number >= 0 && number <= 100 ? std::optional(number) : std::nullopt;
}

std::optional<bool> flag(const std::optional<QString>& text)
{
    if (text == QLatin1String("1"))
        return true;
    if (text == QLatin1String("0"))
        return false;
    return std::nullopt;
}

void logUnreadable(const SonosDevice& player, const QString& what)
{
    Log::info(QStringLiteral("Event from %1 dropped: unreadable %2").arg(player.host, what));
}

} // namespace

SpeakerEvents::SpeakerEvents(SpeakerController& controller, QObject* parent)
    : QObject(parent)
    , m_controller(controller)
{
    m_initial.setSingleShot(true);
    connect(&m_initial, &QTimer::timeout, this, [this] {
        if (!m_toldBlocked && m_target.device)
            Log::info(QStringLiteral("No events from %1 within %2 s; following it by the "
                                     "regular check only")
                          .arg(m_target.device->name)
                          .arg(initialWait.count() / 1000));
        m_toldBlocked = true;
        m_subscriptions.clear();
    });
    connect(&m_controller, &SpeakerController::changed, this, &SpeakerEvents::targetMayHaveChanged);
}

SpeakerEvents::~SpeakerEvents() = default;

void SpeakerEvents::targetMayHaveChanged()
{
    const Target now{m_controller.device(), m_controller.coordinator()};
    if (now == m_target)
        return;
    // Another player is another firewall question: it is told about once more.
    if (now.device != m_target.device)
        m_toldBlocked = false;
    m_target = now;
    subscribe();
}

void SpeakerEvents::resubscribe(const QString& reason)
{
    if (!m_target.device)
        return;
    Log::info("Subscribing to events again (" + reason + ")");
    subscribe();
}

QFuture<void> SpeakerEvents::stop()
{
    m_initial.stop();
    m_target = {};
    QList<QFuture<void>> told;
    for (const std::unique_ptr<EventSubscription>& subscription : m_subscriptions)
        told.append(subscription->stop());
    m_subscriptions.clear();
    return QtFuture::whenAll(told.begin(), told.end()).then([](const QList<QFuture<void>>&) {});
}

void SpeakerEvents::subscribe()
{
    // The old subscriptions go first, so that a new network's address is looked up afresh.
    m_subscriptions.clear();
    m_following = false;
    m_transportState.reset();
    m_track.reset();
    m_group.reset();
    m_initial.stop();
    if (!m_target.device)
        return;
    const SonosDevice& player = *m_target.device;
    add(player, renderingPath, &SpeakerEvents::readRendering);
    add(player, transportPath, &SpeakerEvents::readTransport);
    add(player, topologyPath, &SpeakerEvents::readTopology);
    if (m_target.coordinator)
        add(*m_target.coordinator, groupRenderingPath, &SpeakerEvents::readGroupRendering);
    m_initial.start(initialWait);
}

void SpeakerEvents::add(const SonosDevice& player, const QString& path,
                        void (SpeakerEvents::*read)(const QByteArray&))
{
    auto subscription = std::make_unique<EventSubscription>(player, path);
    connect(subscription.get(), &EventSubscription::notified, this,
            [this, read](const QByteArray& body) {
                arrived();
                (this->*read)(body);
            });
    subscription->start();
    m_subscriptions.push_back(std::move(subscription));
}

void SpeakerEvents::arrived()
{
    m_following = true;
    m_initial.stop();
}

void SpeakerEvents::readRendering(const QByteArray& body)
{
    // While grouped, the levels the keys move are the group's, told by its coordinator.
    if (m_target.coordinator)
        return;
    const std::optional<QString> document = lastChange(body);
    if (!document)
        return logUnreadable(*m_target.device, QStringLiteral("RenderingControl change"));
    const std::optional<QString> volumeText = value(*document, u"Volume", u"Master");
    const std::optional<QString> muteText = value(*document, u"Mute", u"Master");
    if (!volumeText && !muteText)
        return; // a change of something else (bass, treble, loudness)
    const std::optional<int> volume =
        volumeText ? level(volumeText) : m_controller.snapshot().volume;
    const std::optional<bool> muted = muteText ? flag(muteText) : m_controller.snapshot().muted;
    if (!volume || !muted)
        return logUnreadable(*m_target.device, QStringLiteral("volume or mute"));
    m_controller.follow(*volume, *muted);
}

void SpeakerEvents::readGroupRendering(const QByteArray& body)
{
    const QString text = QString::fromUtf8(body);
    const std::optional<QString> volumeText = Tags::element(u"GroupVolume", text);
    const std::optional<QString> muteText = Tags::element(u"GroupMute", text);
    if (!volumeText && !muteText)
        return;
    const std::optional<int> volume =
        volumeText ? level(volumeText) : m_controller.snapshot().volume;
    const std::optional<bool> muted = muteText ? flag(muteText) : m_controller.snapshot().muted;
    if (!volume || !muted)
        return logUnreadable(*m_target.coordinator, QStringLiteral("group volume or mute"));
    m_controller.follow(*volume, *muted);
}

void SpeakerEvents::readTransport(const QByteArray& body)
{
    const std::optional<QString> document = lastChange(body);
    if (!document)
        return logUnreadable(*m_target.device, QStringLiteral("AVTransport change"));
    bool changed = false;
    if (const std::optional<QString> state = value(*document, u"TransportState")) {
        changed = changed || (m_transportState && m_transportState != state);
        m_transportState = state;
    }
    if (const std::optional<QString> track = value(*document, u"CurrentTrackURI")) {
        changed = changed || (m_track && m_track != track);
        m_track = track;
    }
    if (changed)
        emit playbackChanged();
}

void SpeakerEvents::readTopology(const QByteArray& body)
{
    const std::optional<QString> state = Tags::element(u"ZoneGroupState", QString::fromUtf8(body));
    if (!state)
        return; // another of the topology's variables
    const QString uid = m_target.device->uid;
    const std::optional<ZoneTopology::GroupInfo> group =
        ZoneTopology::groupInfo(uid, ZoneTopology::unescape(*state));
    if (!group)
        return logUnreadable(*m_target.device, QStringLiteral("zone group state"));
    QStringList members = group->members;
    members.sort();
    const QString described = group->coordinator.toUpper() + ' ' + members.join(u' ');
    const bool moved = m_group && *m_group != described;
    m_group = described;
    if (moved)
        m_controller.lookAtGroupAgain();
}
