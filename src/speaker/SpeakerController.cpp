#include "speaker/SpeakerController.h"

#include "discovery/Coordinator.h"
#include "discovery/SonosDiscovery.h"
#include "discovery/ZoneScan.h"
#include "discovery/ZoneTopology.h"
#include "support/Log.h"
#include "support/PlatformWords.h"

#include <algorithm>
#include <utility>

namespace {

// Group volume changes closer together than this are one slide of the volume, made from
// one snapshot of the members' ratios.
constexpr qint64 kGroupBurstGapMs = 2000;

// How long the player's report of a volume sent from here may take to come back.
constexpr qint64 kEchoMs = 2000;

// The room named `name` among one sweep's rooms. Two households on one network may both
// have it: then only the one of `household` (the chosen speaker's, where known) counts.
std::optional<SonosDevice> roomNamed(const QList<SonosDevice>& rooms, const QString& name,
                                     const QString& household)
{
    for (const SonosDevice& room : rooms)
        if (room.name == name && (household.isEmpty() || room.household == household))
            return room;
    return std::nullopt;
}

// The household of the player at `host` among `zones`, or empty.
QString householdAt(const QList<SonosDevice>& zones, const QString& host)
{
    for (const SonosDevice& zone : zones)
        if (zone.host == host)
            return zone.household;
    return {};
}

QString withMute(int volume, bool muted)
{
    return QString::number(volume) + (muted ? QStringLiteral(" (muted)") : QString());
}

} // namespace

SpeakerController::SpeakerController(QString speakerName, RetrySchedule schedule, QObject* parent)
    : QObject(parent)
    , m_schedule(schedule)
    , m_discovery(&SonosDiscovery::Coordinator::shared())
    , m_wantedName(std::move(speakerName))
    , m_backoff(schedule.firstBackoff)
{
    m_supervisor.setSingleShot(true);
    connect(&m_supervisor, &QTimer::timeout, this, &SpeakerController::superviseStep);
}

SpeakerController::Snapshot SpeakerController::snapshot() const
{
    return {m_device ? m_device->name : m_wantedName,
            m_cachedVolume,
            m_cachedMuted,
            m_device.has_value(),
            m_device && m_fixedVolume,
            m_problem};
}

void SpeakerController::notify()
{
    emit changed();
}

// ---- Local changes -----------------------------------------------------------------------

void SpeakerController::set(int volume)
{
    record(volume, std::nullopt);
}

void SpeakerController::apply(int volume, bool muted)
{
    record(volume, muted);
}

void SpeakerController::record(std::optional<int> volume, std::optional<bool> muted)
{
    ++m_generation;
    if (volume) {
        m_cachedVolume = std::clamp(*volume, 0, 100);
        m_pendingVolume = m_cachedVolume;
    }
    if (muted) {
        m_cachedMuted = *muted;
        m_pendingMute = *muted;
    }
    notify();
    if (m_draining)
        return; // the running drain picks up the newest values when its send returns
    m_draining = true;
    drain();
}

void SpeakerController::drain()
{
    if (!m_device || m_fixedVolume) {
        // Nowhere to send to, or a player that would refuse it. The next connection reads
        // the speaker's own level instead of replaying presses made meanwhile.
        m_pendingVolume.reset();
        m_pendingMute.reset();
    }
    std::optional<Change> next;
    if (m_pendingVolume) {
        next = Change{Change::Kind::Volume, *m_pendingVolume, false};
        m_pendingVolume.reset();
    } else if (m_pendingMute) {
        next = Change{Change::Kind::Mute, 0, *m_pendingMute};
        m_pendingMute.reset();
    }
    if (!next) {
        m_draining = false;
        return;
    }
    send(*next, [this] { drain(); });
}

void SpeakerController::send(const Change& change, std::function<void()> done)
{
    if (change.kind == Change::Kind::Volume) {
        m_sentVolumes.removeIf([](const auto& sent) { return sent.second.hasExpired(kEchoMs); });
        QElapsedTimer sentAt;
        sentAt.start();
        m_sentVolumes.append({change.volume, sentAt});
    }
    if (!m_coordinator || m_groupRefused) {
        sendToDevice(change, std::move(done));
        return;
    }
    const SonosDevice target = *m_coordinator;
    QFuture<SonosResult<Done>> request;
    if (change.kind == Change::Kind::Mute) {
        request = target.setGroupMute(change.muted);
    } else {
        // The group keeps its members' ratios from the last snapshot, so a slide starts
        // with one; without it a slide to near silence and back flattens them.
        const bool slideStarts =
            !m_sinceGroupVolume.isValid() || m_sinceGroupVolume.hasExpired(kGroupBurstGapMs);
        m_sinceGroupVolume.start();
        const int volume = change.volume;
        request = slideStarts ? target.snapshotGroupVolume()
                                    .then([target, volume](const SonosResult<Done>&) {
                                        return target.setGroupVolume(volume);
                                    })
                                    .unwrap()
                              : target.setGroupVolume(volume);
    }
    request.then(this, [this, change, done = std::move(done)](SonosResult<Done> result) {
        if (result)
            return done();
        Log::info("group volume failed (" + describe(result.error()) +
                  "); falling back to this player");
        m_groupRefused = true;
        sendToDevice(change, done);
    });
}

void SpeakerController::sendToDevice(const Change& change, std::function<void()> done)
{
    if (!m_device)
        return done();
    const SonosDevice target = *m_device;
    auto request = change.kind == Change::Kind::Volume ? target.setVolume(change.volume)
                                                       : target.setMute(change.muted);
    request.then(this, [this, done = std::move(done)](SonosResult<Done> result) {
        if (!result) {
            Log::info("send failed (" + describe(result.error()) + "); will retry after reconnect");
            m_problem = SpeakerProblem{SpeakerProblem::Kind::unreachable, {}};
            m_wakeRequested = true;
            wakeSupervision();
            notify();
        }
        done();
    });
}

// ---- Connecting --------------------------------------------------------------------------

void SpeakerController::connectToSpeaker(Finish finish)
{
    const int attempt = ++m_connectGeneration;
    if (m_wantedName.isEmpty()) {
        m_problem = SpeakerProblem{SpeakerProblem::Kind::noSpeakerChosen, {}};
        notify();
        return finish(Outcome::Failed);
    }
    if (m_knownHost.isEmpty())
        return connectByName(attempt, finish);

    // The remembered address answers in milliseconds, where a sweep listens for seconds.
    SonosDiscovery::describe(m_knownHost)
        .then(this, [this, attempt, finish](SonosResult<SonosDevice> described) {
            if (attempt != m_connectGeneration)
                return finish(Outcome::Stale);
            if (!described || described->name != m_wantedName)
                return connectByName(attempt, finish);
            // The address may have been learned from a satellite of the room; only its
            // leader is ever driven.
            const SonosDevice device = *described;
            ZoneTopology::leadsRoom(device).then(this, [=, this](bool leads) {
                if (attempt != m_connectGeneration)
                    return finish(Outcome::Stale);
                if (!leads)
                    return connectByName(attempt, finish);
                connectTo(device, true, attempt, std::nullopt, finish);
            });
        });
}

void SpeakerController::connectByName(int attempt, const Finish& finish)
{
    ZoneScan::visibleZones(*m_discovery, m_schedule.sweepSeconds)
        .then(this, [this, attempt, finish](const QList<SonosDevice>& zones) {
            if (attempt != m_connectGeneration)
                return finish(Outcome::Stale);
            const QString name = m_wantedName;
            if (zones.isEmpty()) {
                ++m_emptySweeps;
                m_problem = m_emptySweeps < 2
                                ? SpeakerProblem{SpeakerProblem::Kind::looking, name}
                                : SpeakerProblem{SpeakerProblem::Kind::noSpeakersFound, {}};
                Log::info(QStringLiteral("no zones discovered (sweep %1) — ").arg(m_emptySweeps) +
                          platformText(PlatformText::noZonesPersistHint));
                notify();
                return finish(Outcome::Failed);
            }
            // Where the topology could not tell satellites apart, they still share the
            // room's name: the room's leader is the one driven.
            const QList<SonosDevice> rooms = ZoneTopology::roomLeaders(zones);
            const QString household =
                m_household.isEmpty() ? householdAt(zones, m_knownHost) : m_household;
            const std::optional<SonosDevice> found = roomNamed(rooms, name, household);
            if (!found) {
                m_problem = SpeakerProblem{SpeakerProblem::Kind::notFound, name};
                Log::info(QStringLiteral("Speaker '%1' not among %2 discovered zones; will retry")
                              .arg(name)
                              .arg(zones.size()));
                notify();
                return finish(Outcome::Failed);
            }
            connectTo(*found, false, attempt, zones, finish);
        });
}

void SpeakerController::connectTo(const SonosDevice& device, bool remembered, int attempt,
                                  const std::optional<QList<SonosDevice>>& visibleZones,
                                  const Finish& finish)
{
    auto read = device.volume().then(this, [device](SonosResult<int> volume) {
        return device.isMuted().then([volume](SonosResult<bool> muted) -> SonosResult<Levels> {
            if (!volume)
                return volume.error();
            if (!muted)
                return muted.error();
            return Levels{*volume, *muted};
        });
    });
    read.unwrap().then(this, [=, this](SonosResult<Levels> levels) {
        if (attempt != m_connectGeneration)
            return finish(Outcome::Stale);
        if (!levels) {
            if (remembered)
                return connectByName(attempt, finish); // the address now belongs to another
            m_problem = SpeakerProblem{SpeakerProblem::Kind::answeredDiscoveryOnly, device.name};
            Log::info("Speaker '" + device.name +
                      "' answered discovery but not control: " + describe(levels.error()));
            notify();
            return finish(Outcome::Failed);
        }
        // Asked before the keys are handed over, so that none is sent to a player that
        // would refuse it.
        device.isOutputFixed().then(this, [=, this](SonosResult<bool> fixed) {
            if (attempt != m_connectGeneration)
                return finish(Outcome::Stale);
            establish(device, *levels, fixed && *fixed);
            finish(Outcome::Connected);
            // The group only decides where later changes go, so the keys need not wait.
            refreshCoordinator(visibleZones, [this, remembered, attempt] {
                if (attempt == m_connectGeneration)
                    logConnected(remembered);
            });
        });
    });
}

void SpeakerController::establish(const SonosDevice& device, const Levels& levels, bool fixed)
{
    m_device = device;
    if (!device.household.isEmpty())
        m_household = device.household;
    m_coordinator.reset();
    m_groupRefused = false;
    m_fixedVolume = fixed;
    m_problem.reset();
    m_emptySweeps = 0;
    m_resyncsSinceGroupCheck = 0;
    adopt(levels, false);
    m_knownHost = device.host;
    emit hostLearned(device.host);
    notify();
}

void SpeakerController::logConnected(bool remembered)
{
    if (!m_device)
        return;
    const SonosDevice& d = *m_device;
    if (m_everConnected) {
        Log::info("Reconnected to " + d.name + " at " + d.host);
        return;
    }
    m_everConnected = true;
    QString line = "Connected to " + d.name + " (" + d.model + ") at " + d.host +
                   (remembered ? QStringLiteral(" (remembered address)") : QString()) +
                   ", volume " + withMute(m_cachedVolume, m_cachedMuted);
    if (m_coordinator)
        line += " — grouped, volume goes to " + m_coordinator->name;
    if (m_fixedVolume)
        line += " — fixed volume, the keys stay with the desktop";
    Log::info(line);
}

void SpeakerController::refreshCoordinator(const std::optional<QList<SonosDevice>>& among,
                                           std::function<void()> done)
{
    if (!m_device)
        return done();
    const SonosDevice device = *m_device;
    auto apply = [this, device, done](const ZoneTopology::GroupTarget& g) {
        if (m_device == device) {
            m_groupRefused = false;
            const std::optional<SonosDevice> before = m_coordinator;
            if (g.grouped)
                m_coordinator = g.target;
            else
                m_coordinator.reset();
            if (m_coordinator != before)
                notify();
        }
        done();
    };
    if (among) {
        ZoneTopology::group(device, *among).then(this, apply);
        return;
    }
    // Without a fresh sweep at hand the player's own group state usually settles it: a
    // player alone or leading its group needs nobody else's address. Only a player grouped
    // under another needs the sweep, to find where its leader lives.
    ZoneTopology::zoneGroupState(device).then(
        this, [this, device, apply](const std::optional<QString>& answer) {
            if (!answer)
                return apply({device, false});
            const auto info = ZoneTopology::groupInfo(device.uid, ZoneTopology::unescape(*answer));
            if (!info || info->coordinator.toUpper() == device.uid.toUpper())
                return apply(ZoneTopology::groupTarget(device, {device}, *answer));
            ZoneScan::visibleZones(*m_discovery, m_schedule.sweepSeconds)
                .then(this,
                      [device](const QList<SonosDevice>& visible) {
                          return ZoneTopology::group(device, visible);
                      })
                .unwrap()
                .then(this, apply);
        });
}

// ---- Following the speaker ---------------------------------------------------------------

void SpeakerController::readLevels(std::function<void(SonosResult<Levels>)> done)
{
    const bool group = m_coordinator.has_value();
    const SonosDevice target = group ? *m_coordinator : *m_device;
    auto volume = group ? target.groupVolume() : target.volume();
    volume.then(this, [this, target, group, done = std::move(done)](SonosResult<int> v) {
        if (!v)
            return done(v.error());
        auto muted = group ? target.isGroupMuted() : target.isMuted();
        muted.then(this, [v, done](SonosResult<bool> m) {
            if (!m)
                return done(m.error());
            done(Levels{*v, *m});
        });
    });
}

void SpeakerController::adopt(const Levels& levels, bool fromElsewhere)
{
    const bool moved = levels.volume != m_cachedVolume || levels.muted != m_cachedMuted;
    m_cachedVolume = std::clamp(levels.volume, 0, 100);
    m_cachedMuted = levels.muted;
    if (fromElsewhere && moved)
        Log::info("speaker moved externally to " + withMute(m_cachedVolume, m_cachedMuted));
}

void SpeakerController::follow(int volume, bool muted)
{
    if (!m_device || m_draining || m_pendingVolume || m_pendingMute)
        return;
    const bool echo = std::any_of(m_sentVolumes.cbegin(), m_sentVolumes.cend(), [&](const auto& s) {
        return s.first == volume && !s.second.hasExpired(kEchoMs);
    });
    if (echo && volume != m_cachedVolume)
        return;
    const Snapshot before = snapshot();
    adopt({volume, muted}, true);
    if (snapshot() != before)
        notify();
}

void SpeakerController::lookAtGroupAgain()
{
    refreshCoordinator(std::nullopt, [] {});
}

void SpeakerController::resync(std::function<void()> done)
{
    const quint64 generation = m_generation;
    const std::optional<SonosDevice> checked = m_device;
    readLevels([this, generation, checked, done = std::move(done)](SonosResult<Levels> levels) {
        if (m_device != checked)
            return done(); // reconnected or switched meanwhile
        if (!levels) {
            Log::info("health check failed: " + describe(levels.error()));
            m_problem = SpeakerProblem{SpeakerProblem::Kind::unreachable, {}};
            dropConnection();
            notify();
            return done();
        }
        // A local change made while the read was out is newer than what it brought back.
        const bool localChangeMeanwhile =
            m_generation != generation || m_draining || m_pendingVolume || m_pendingMute;
        if (!localChangeMeanwhile) {
            const Snapshot before = snapshot();
            adopt(*levels, true);
            m_problem.reset(); // a send may have failed, but the speaker answers again
            if (snapshot() != before)
                notify();
        }
        if (++m_resyncsSinceGroupCheck < m_schedule.checksPerGroupRefresh)
            return done();
        m_resyncsSinceGroupCheck = 0;
        refreshFixedVolume([this, done] { refreshCoordinator(std::nullopt, done); });
    });
}

void SpeakerController::refreshFixedVolume(std::function<void()> done)
{
    const SonosDevice device = *m_device;
    device.isOutputFixed().then(this, [this, device, done](SonosResult<bool> fixed) {
        if (m_device == device && fixed)
            adoptFixedVolume(*fixed);
        done();
    });
}

void SpeakerController::adoptFixedVolume(bool fixed)
{
    if (fixed == m_fixedVolume)
        return;
    m_fixedVolume = fixed;
    Log::info(m_device->name + (fixed ? QStringLiteral(" now has a fixed volume")
                                      : QStringLiteral(" no longer has a fixed volume")));
    notify();
}

void SpeakerController::dropConnection()
{
    m_device.reset();
    m_coordinator.reset();
}

// ---- Supervision -------------------------------------------------------------------------

void SpeakerController::startSupervision()
{
    if (m_supervising)
        return;
    m_supervising = true;
    m_backoff = m_schedule.firstBackoff;
    scheduleStep(RetrySchedule::Duration::zero());
}

void SpeakerController::scheduleStep(RetrySchedule::Duration delay)
{
    m_supervisor.start(delay);
}

void SpeakerController::wakeSupervision()
{
    if (m_supervising && !m_stepRunning)
        scheduleStep(RetrySchedule::Duration::zero());
}

void SpeakerController::superviseStep()
{
    m_stepRunning = true;
    if (m_device) {
        m_wakeRequested = false;
        resync([this] {
            m_stepRunning = false;
            if (m_wakeRequested || !m_device) // a send failed meanwhile, or the check did
                return scheduleStep(RetrySchedule::Duration::zero());
            scheduleStep(m_schedule.healthInterval);
        });
        return;
    }
    if (m_wantedName.isEmpty()) {
        m_stepRunning = false;
        const SpeakerProblem reason{SpeakerProblem::Kind::noSpeakerChosen, {}};
        if (std::exchange(m_problem, reason) != reason)
            notify();
        return scheduleStep(m_schedule.idleInterval);
    }
    const bool quick = m_quickRetry || m_wakeRequested;
    m_quickRetry = false;
    m_wakeRequested = false;
    connectToSpeaker([this, quick](Outcome outcome) {
        m_stepRunning = false;
        if (outcome == Outcome::Connected || (outcome == Outcome::Stale && m_device)) {
            m_backoff = m_schedule.firstBackoff;
            return scheduleStep(m_schedule.healthInterval);
        }
        if (outcome == Outcome::Stale) // a newer attempt is under way and will report
            return scheduleStep(m_schedule.quickRetry);
        m_backoff = m_schedule.nextBackoff(m_backoff, quick);
        scheduleStep(m_backoff);
    });
}

void SpeakerController::switchTo(const QString& speakerName)
{
    m_wantedName = speakerName;
    ++m_connectGeneration; // whatever was being connected is no longer wanted
    dropConnection();
    m_knownHost.clear();
    m_problem.reset();
    m_emptySweeps = 0;
    m_everConnected = false;
    m_pendingVolume.reset();
    m_pendingMute.reset();
    m_backoff = m_schedule.firstBackoff;
    notify();
    if (m_supervising) {
        m_quickRetry = true;
        if (!m_stepRunning)
            return scheduleStep(RetrySchedule::Duration::zero());
    }
    connectToSpeaker([](Outcome) {});
}

void SpeakerController::reconnectNow(const QString& reason)
{
    const bool healthy = m_device && !m_problem;
    if (healthy) {
        Log::info(reason + "; connection is healthy, leaving it alone");
        return;
    }
    Log::info("reconnecting immediately (" + reason + ")");
    connectToSpeaker([this](Outcome outcome) {
        // The supervision may be waiting out a long back-off from the failures before; a
        // connection made now is checked as soon as any other.
        if (outcome != Outcome::Connected || !m_supervising || m_stepRunning)
            return;
        m_backoff = m_schedule.firstBackoff;
        scheduleStep(m_schedule.healthInterval);
    });
}
