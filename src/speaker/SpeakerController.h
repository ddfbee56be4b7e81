#pragma once

#include "sonos/SonosDevice.h"
#include "speaker/RetrySchedule.h"
#include "speaker/SpeakerProblem.h"

#include <QElapsedTimer>
#include <QList>
#include <QObject>
#include <QTimer>

#include <functional>
#include <optional>
#include <utility>

namespace SonosDiscovery {
class Coordinator;
}

// Keeps the application connected to the one zone player the user chose, by room name.
// Volume and mute changes are coalesced so a burst of key presses sends only the newest
// values; when the player is grouped they go to the group's coordinator. A supervision loop
// checks the connection every few seconds, follows changes made elsewhere (the Sonos app,
// the speaker's buttons) and reconnects with back-off.
//
// A serial object: it lives on one thread (the main thread) and its state is touched only
// there; network answers come back through that thread's event loop, and answers of an
// older connection attempt are dropped.
class SpeakerController : public QObject {
    Q_OBJECT
public:
    struct Snapshot {
        QString name; // the connected player's name, else the wanted one
        int volume = 50;
        bool muted = false;
        bool connected = false;
        // Connected, but the player's output is fixed at line level: its volume cannot be
        // changed, so the keys belong to the desktop.
        bool fixedVolume = false;
        std::optional<SpeakerProblem> problem; // why the last attempt failed; none when healthy
        bool operator==(const Snapshot&) const = default;
    };

    explicit SpeakerController(QString speakerName, RetrySchedule schedule = {},
                               QObject* parent = nullptr);

    // A local change: clamped to 0...100, cached at once, sent coalesced.
    void set(int volume);
    void apply(int volume, bool muted);

    void switchTo(const QString& speakerName);
    void startSupervision();
    // Reconnects at once, but only when the connection is not healthy.
    void reconnectNow(const QString& reason);

    Snapshot snapshot() const;
    QString speakerName() const { return m_wantedName; }
    bool isGrouped() const { return m_coordinator.has_value(); }
    std::optional<SonosDevice> device() const { return m_device; }
    // The group's coordinator, where the levels live while the player is grouped.
    std::optional<SonosDevice> coordinator() const { return m_coordinator; }

    // Levels the speaker reported on its own (an event message): taken as a change made
    // elsewhere, unless a local change is on its way or the levels are the echo of one sent
    // moments ago, which a newer one has overtaken.
    void follow(int volume, bool muted);
    // The household's grouping changed: where the levels live is looked at again.
    void lookAtGroupAgain();

    // The address at which the chosen speaker last answered; tried first on connecting.
    QString knownHost() const { return m_knownHost; }
    void setKnownHost(const QString& host) { m_knownHost = host; }

    // Where zone sweeps come from; the process-wide coordinator unless told otherwise.
    void setDiscovery(SonosDiscovery::Coordinator& discovery) { m_discovery = &discovery; }

signals:
    // The snapshot may have changed; emitted inside the controller's own work, so a receiver
    // that calls back into it should queue the call.
    void changed();
    // The chosen speaker answered at `host`.
    void hostLearned(const QString& host);

private:
    struct Levels {
        int volume = 0;
        bool muted = false;
    };
    struct Change {
        enum class Kind { Volume, Mute } kind;
        int volume = 0;
        bool muted = false;
    };
    enum class Outcome { Connected, Failed, Stale };
    using Finish = std::function<void(Outcome)>;

    void record(std::optional<int> volume, std::optional<bool> muted);
    void drain();
    void send(const Change& change, std::function<void()> done);
    void sendToDevice(const Change& change, std::function<void()> done);

    void connectToSpeaker(Finish finish);
    void connectByName(int attempt, const Finish& finish);
    void connectTo(const SonosDevice& device, bool remembered, int attempt,
                   const std::optional<QList<SonosDevice>>& visibleZones, const Finish& finish);
    void establish(const SonosDevice& device, const Levels& levels, bool fixed);
    void refreshFixedVolume(std::function<void()> done);
    void adoptFixedVolume(bool fixed);
    void refreshCoordinator(const std::optional<QList<SonosDevice>>& among,
                            std::function<void()> done);
    void logConnected(bool remembered);

    void readLevels(std::function<void(SonosResult<Levels>)> done);
    void adopt(const Levels& levels, bool fromElsewhere);
    void resync(std::function<void()> done);
    void dropConnection();

    void superviseStep();
    void scheduleStep(RetrySchedule::Duration delay);
    void wakeSupervision();
    void notify();

    RetrySchedule m_schedule;
    SonosDiscovery::Coordinator* m_discovery;
    std::optional<SonosDevice> m_device;
    std::optional<SonosDevice> m_coordinator;
    QString m_wantedName;
    int m_cachedVolume = 50;
    bool m_cachedMuted = false;
    std::optional<SpeakerProblem> m_problem;
    std::optional<int> m_pendingVolume;
    std::optional<bool> m_pendingMute;
    quint64 m_generation = 0;
    int m_connectGeneration = 0;
    bool m_draining = false;
    int m_emptySweeps = 0;
    bool m_wakeRequested = false;
    QString m_knownHost;
    QString m_household; // the chosen speaker's household, once a sweep has named it
    int m_resyncsSinceGroupCheck = 0;
    bool m_fixedVolume = false;
    // Set when the group refused a volume change; until the group is next looked at,
    // changes go straight to the player instead of failing at the group first.
    bool m_groupRefused = false;
    QElapsedTimer m_sinceGroupVolume; // since the last group volume change was sent
    // The volumes sent lately, with when, so that their echoes are known for what they are.
    QList<std::pair<int, QElapsedTimer>> m_sentVolumes;

    bool m_everConnected = false;
    bool m_supervising = false;
    bool m_stepRunning = false;
    bool m_quickRetry = false;
    RetrySchedule::Duration m_backoff;
    QTimer m_supervisor;
};
