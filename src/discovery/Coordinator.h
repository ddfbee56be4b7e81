#pragma once

#include "sonos/SonosDevice.h"

#include <QFuture>
#include <QList>
#include <QObject>
#include <QPromise>

#include <chrono>
#include <functional>
#include <memory>
#include <optional>
#include <vector>

namespace SonosDiscovery {

// Shares one sweep among everyone who asks for the zones while it runs, and keeps a
// non-empty result for ten seconds, so that panel refreshes, reconnects and the
// diagnostics never flood the network with searches. A serial object: its state is
// touched only on its own thread (the main thread for `shared()`); calls from other
// threads are queued onto it, and every answer is delivered from it.
class Coordinator : public QObject {
    Q_OBJECT
public:
    using Clock = std::function<std::chrono::steady_clock::time_point()>;
    using Sweep = std::function<QFuture<QList<SonosDevice>>(double timeout)>;

    static constexpr std::chrono::seconds cacheLifetime{10};

    struct Cached {
        std::chrono::steady_clock::time_point stamp;
        QList<SonosDevice> zones;
    };

    // `sweep` defaults to a real `browse`, `clock` to the monotonic clock.
    explicit Coordinator(Sweep sweep = {}, Clock clock = {}, QObject* parent = nullptr);
    ~Coordinator() override;

    // The process-wide instance, living on the application's main thread.
    static Coordinator& shared();

    // The zones, from the cache, from the sweep already running, or from a new sweep that
    // listens for `timeout` seconds. A caller joining a running sweep gets its result
    // whatever timeout it asked for. Never fails; the list may be empty.
    QFuture<QList<SonosDevice>> zones(double timeout);

    // Whether a cached result may still be handed out at `now`.
    static bool isFresh(const std::optional<Cached>& cached,
                        std::chrono::steady_clock::time_point now);

    // How many sweeps this coordinator has started (for diagnostics and tests).
    int sweepsStarted() const { return m_sweepsStarted; }

private:
    using Waiter = std::shared_ptr<QPromise<QList<SonosDevice>>>;

    void serve(const Waiter& waiter, double timeout);
    void startSweep(double timeout);
    void finishSweep(const QList<SonosDevice>& zones);

    Sweep m_sweep;
    Clock m_clock;
    std::optional<Cached> m_cached;
    bool m_inFlight = false;
    std::vector<Waiter> m_waiters;
    int m_sweepsStarted = 0;
};

} // namespace SonosDiscovery
