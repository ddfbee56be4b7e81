#include "discovery/Coordinator.h"

#include "discovery/SonosDiscovery.h"

#include <QCoreApplication>
#include <QThread>

namespace SonosDiscovery {

Coordinator::Coordinator(Sweep sweep, Clock clock, QObject* parent)
    : QObject(parent)
    , m_sweep(sweep ? std::move(sweep) : Sweep(&browse))
    , m_clock(clock ? std::move(clock) : Clock(&std::chrono::steady_clock::now))
{
}

Coordinator::~Coordinator()
{
    // Whoever still waits gets an empty list rather than a future that never finishes.
    finishSweep({});
}

Coordinator& Coordinator::shared()
{
    static Coordinator coordinator;
    static const bool onMainThread = [] {
        if (QCoreApplication* app = QCoreApplication::instance())
            coordinator.moveToThread(app->thread());
        return true;
    }();
    Q_UNUSED(onMainThread);
    return coordinator;
}

QFuture<QList<SonosDevice>> Coordinator::zones(double timeout)
{
    auto waiter = std::make_shared<QPromise<QList<SonosDevice>>>();
    waiter->start();
    QFuture<QList<SonosDevice>> future = waiter->future();
    if (QThread::currentThread() == thread())
        serve(waiter, timeout);
    else
        QMetaObject::invokeMethod(
            this, [this, waiter, timeout] { serve(waiter, timeout); }, Qt::QueuedConnection);
    return future;
}

bool Coordinator::isFresh(const std::optional<Cached>& cached,
                          std::chrono::steady_clock::time_point now)
{
    return cached && !cached->zones.isEmpty() && now - cached->stamp < cacheLifetime;
}

void Coordinator::serve(const Waiter& waiter, double timeout)
{
    if (isFresh(m_cached, m_clock())) {
        waiter->addResult(m_cached->zones);
        waiter->finish();
        return;
    }
    m_waiters.push_back(waiter);
    if (!m_inFlight)
        startSweep(timeout);
}

void Coordinator::startSweep(double timeout)
{
    m_inFlight = true;
    ++m_sweepsStarted;
    m_sweep(timeout)
        .then(this, [this](const QList<SonosDevice>& zones) { finishSweep(zones); })
        .onCanceled(this, [this] { finishSweep({}); });
}

void Coordinator::finishSweep(const QList<SonosDevice>& zones)
{
    m_inFlight = false;
    // An empty result is never kept: the next caller searches again.
    if (!zones.isEmpty())
        m_cached = Cached{m_clock(), zones};
    const std::vector<Waiter> waiters = std::exchange(m_waiters, {});
    for (const Waiter& waiter : waiters) {
        waiter->addResult(zones);
        waiter->finish();
    }
}

} // namespace SonosDiscovery
