#include "app/Probe.h"

#include "audio/PulseAudio.h"
#include "discovery/Coordinator.h"
#include "discovery/SonosDiscovery.h"
#include "discovery/ZoneTopology.h"
#include "keys/EventTap.h"
#include "sonos/SonosDevice.h"

#include <QCoreApplication>
#include <QDBusConnection>
#include <QDBusMessage>
#include <QDBusPendingCallWatcher>
#include <QDBusPendingReply>
#include <QFile>
#include <QFileInfo>
#include <QPointer>
#include <QSet>
#include <QThreadPool>
#include <QTimer>

#include <optional>

namespace {

const QString kBusName = QStringLiteral("com.brindlewerk.velotide");
const QString kProbeConnection = QStringLiteral("velotide-probe");
constexpr int kBusTimeoutMs = 1000;

ProbeReport::Zone zoneHeader(const SonosDevice& device)
{
    ProbeReport::Zone zone;
    zone.name = device.name;
    zone.model = device.model;
    zone.host = device.host;
    zone.uid = device.uid;
    zone.hasNativeOptical = SonosDiscovery::hasNativeOptical(device.model);
    zone.airplayId = device.airplayReceiverID();
    return zone;
}

// The session bus the desktop announced, or its usual socket. Never the bus library's own
// fallback, which on X11 launches a bus daemon: the probe starts nothing.
std::optional<QString> sessionBusAddress()
{
    const QString announced = qEnvironmentVariable("DBUS_SESSION_BUS_ADDRESS");
    if (!announced.isEmpty())
        return announced;
    const QString runtime = qEnvironmentVariable("XDG_RUNTIME_DIR");
    if (!runtime.isEmpty() && QFile::exists(runtime + QStringLiteral("/bus")))
        return QStringLiteral("unix:path=") + runtime + QStringLiteral("/bus");
    return std::nullopt;
}

// Whether the user can talk to the key service, or failing that could grab the keys on X11:
// the same choice the application makes, without installing anything.
bool hasInputAccess(const QString& keyServicePath)
{
    EventTap::Options options;
    options.servicePath = keyServicePath;
    return EventTap::create({}, options)->isTrusted();
}

} // namespace

Probe::Probe(Print print, QObject* parent)
    : Probe(std::move(print), Options{}, parent)
{
}

Probe::Probe(Print print, Options options, QObject* parent)
    : QObject(parent)
    , m_print(std::move(print))
    , m_options(std::move(options))
{
}

Probe::~Probe() = default;

void Probe::start()
{
    // The sound server and the settings file are read while the bus is asked.
    m_audio = std::make_unique<PulseAudio>();
    const QString path =
        m_options.settingsPath.isEmpty() ? Settings::filePath() : m_options.settingsPath;
    QPointer<Probe> self(this);
    QThreadPool::globalInstance()->start([self, path] {
        Settings::Loaded loaded = Settings::peek(path);
        // A first run with something at the path is a file that could not be used; the
        // reason is already logged.
        const QFileInfo found(path);
        const bool unreadable = loaded.isFirstRun && (found.exists() || found.isSymLink());
        QMetaObject::invokeMethod(QCoreApplication::instance(), [self, path, loaded, unreadable] {
            if (!self)
                return;
            self->m_facts.settings = loaded.settings;
            if (!loaded.isFirstRun || unreadable)
                self->m_facts.settingsPath = path;
            self->m_facts.settingsUnreadable = unreadable;
            self->m_settingsLoaded = true;
            self->finish();
        });
    });
    checkRunningCopy();
}

// A running application owns the bus name; this process never claims it. Without a session
// bus there is nothing to ask, and no answer within the time-out counts as no copy running.
void Probe::checkRunningCopy()
{
    const std::optional<QString> address = sessionBusAddress();
    QDBusConnection bus = address ? QDBusConnection::connectToBus(*address, kProbeConnection)
                                  : QDBusConnection(kProbeConnection);
    if (!bus.isConnected()) {
        printHead();
        return;
    }
    const QDBusMessage call =
        QDBusMessage::createMethodCall(
            QStringLiteral("org.freedesktop.DBus"), QStringLiteral("/org/freedesktop/DBus"),
            QStringLiteral("org.freedesktop.DBus"), QStringLiteral("NameHasOwner"))
        << kBusName;
    auto* watcher = new QDBusPendingCallWatcher(bus.asyncCall(call, kBusTimeoutMs), this);
    connect(watcher, &QDBusPendingCallWatcher::finished, this, [this, watcher] {
        const QDBusPendingReply<bool> reply = *watcher;
        m_facts.otherCopyRunning = reply.isValid() && reply.value();
        watcher->deleteLater();
        printHead();
    });
}

void Probe::printHead()
{
    m_facts.inputAccess = hasInputAccess(m_options.keyServicePath);
    m_print(ProbeReport::head(m_facts));
    waitForAudio();
}

// The backend publishes its first copy only once it is complete; a server that is not there
// leaves the copy empty, which the report then shows.
void Probe::waitForAudio()
{
    if (m_audio->state().connected) {
        printAudio();
        return;
    }
    auto* deadline = new QTimer(this);
    deadline->setSingleShot(true);
    auto done = std::make_shared<bool>(false);
    auto proceed = [this, deadline, done] {
        if (*done)
            return;
        *done = true;
        deadline->stop();
        deadline->deleteLater();
        printAudio();
    };
    connect(m_audio.get(), &AudioDevice::changed, this, [this, proceed] {
        if (m_audio->state().connected)
            proceed();
    });
    connect(deadline, &QTimer::timeout, this, proceed);
    deadline->start(m_options.audioWaitMs);
}

void Probe::printAudio()
{
    const AudioDevice::State state = m_audio->state();
    m_audio->disconnect(this);
    for (const AudioDevice::Output& output : state.outputs)
        m_facts.outputs.append({output.name, output.transport});
    m_facts.defaultOutput = state.defaultOutputName;
    m_facts.detectedTrigger =
        AudioDevice::detectTriggerOutput(state.outputs, state.defaultOutputName);
    m_facts.processesOutputting = state.processesOutputting;
    m_print(ProbeReport::audio(m_facts));
    discover();
}

void Probe::discover()
{
    m_discoveryClock.start();
    SonosDiscovery::Coordinator::shared()
        .zones(m_options.discoveryTimeout)
        .then(this, [this](const QList<SonosDevice>& found) {
            ZoneTopology::visible(found).then(
                this,
                [this, found](const QList<SonosDevice>& visible) { showZones(found, visible); });
        });
}

void Probe::showZones(const QList<SonosDevice>& found, const QList<SonosDevice>& visible)
{
    m_facts.discoverySeconds = m_discoveryClock.elapsed() / 1000.0;
    QSet<QString> visibleUids;
    for (const SonosDevice& device : visible)
        visibleUids.insert(device.uid);
    for (const SonosDevice& device : found) {
        if (!visibleUids.contains(device.uid))
            m_facts.hidden.append({device.name, device.model});
    }
    m_visible = visible;
    for (const SonosDevice& device : visible)
        m_facts.zones.append(zoneHeader(device));
    m_zoneAnswered = QList<bool>(visible.size(), false);
    m_print(ProbeReport::discovery(m_facts));
    // All zones at once, so that a few slow players cost the report seconds, not their
    // time-outs one after another; the report still lists them in order.
    for (int index = 0; index < visible.size(); ++index)
        askZone(index);
    QTimer::singleShot(m_options.zonesWaitMs, this, &Probe::zonesOutOfTime);
    printZonesInOrder();
}

// Volume, then mute, then what it plays. The first failure ends that zone's questions.
void Probe::askZone(int index)
{
    const SonosDevice device = m_visible.at(index);
    auto zone = std::make_shared<ProbeReport::Zone>(m_facts.zones.at(index));
    auto fail = [this, index, zone](const SpeakerError& error) {
        zone->controlError = describe(error);
        zoneAnswered(index, *zone);
    };
    device.volume().then(this, [=, this](const SonosResult<int>& volume) {
        if (!volume)
            return fail(volume.error());
        zone->volume = *volume;
        device.isMuted().then(this, [=, this](const SonosResult<bool>& muted) {
            if (!muted)
                return fail(muted.error());
            zone->muted = *muted;
            device.nowPlaying().then(
                this, [=, this](const SonosResult<SonosDevice::NowPlaying>& playing) {
                    if (!playing)
                        return fail(playing.error());
                    zone->uri = playing->uri;
                    zone->title = playing->title;
                    zone->artist = playing->artist;
                    zone->lineInputActive = playing->isLineInput();
                    zoneAnswered(index, *zone);
                });
        });
    });
}

void Probe::zoneAnswered(int index, ProbeReport::Zone zone)
{
    if (m_zoneAnswered[index])
        return; // given up on already
    m_facts.zones[index] = zone;
    m_zoneAnswered[index] = true;
    printZonesInOrder();
}

void Probe::zonesOutOfTime()
{
    for (qsizetype index = 0; index < m_zoneAnswered.size(); ++index) {
        if (m_zoneAnswered[index])
            continue;
        m_facts.zones[index].controlError =
            QStringLiteral("no answer within %1 s").arg(m_options.zonesWaitMs / 1000.0);
        m_zoneAnswered[index] = true;
    }
    printZonesInOrder();
}

void Probe::printZonesInOrder()
{
    if (m_zonesDone)
        return;
    while (m_zonesPrinted < m_zoneAnswered.size() && m_zoneAnswered[m_zonesPrinted])
        m_print(ProbeReport::zone(m_facts.zones[m_zonesPrinted++]));
    if (m_zonesPrinted < m_zoneAnswered.size())
        return;
    m_zonesDone = true;
    finish();
}

void Probe::finish()
{
    if (!m_settingsLoaded || !m_zonesDone)
        return;
    m_print(ProbeReport::settingsAndVerdict(m_facts));
    emit finished();
}
