#include "housekeeping/SingleInstance.h"

#include "support/Log.h"

#include <QDBusConnectionInterface>
#include <QDBusMessage>
#include <QMetaMethod>

namespace {
// How long the second launch waits for the running copy to take its request.
constexpr int kShowTimeoutMs = 2000;
} // namespace

SingleInstance::SingleInstance(QObject* parent)
    : SingleInstance(QDBusConnection::sessionBus(), parent)
{
}

SingleInstance::SingleInstance(const QDBusConnection& bus, QObject* parent)
    : QObject(parent)
    , m_bus(bus)
{
}

bool SingleInstance::claim()
{
    if (!m_bus.isConnected() || !m_bus.interface())
        return true;
    // The object is there before the name, so a request that follows the name at once finds
    // it.
    m_bus.registerObject(objectPath, this, QDBusConnection::ExportScriptableSlots);
    const QDBusReply<QDBusConnectionInterface::RegisterServiceReply> reply =
        m_bus.interface()->registerService(serviceName, QDBusConnectionInterface::DontQueueService,
                                           QDBusConnectionInterface::DontAllowReplacement);
    if (!reply.isValid() || reply.value() == QDBusConnectionInterface::ServiceRegistered)
        return true;
    m_bus.unregisterObject(objectPath);

    const QDBusReply<uint> pid = m_bus.interface()->servicePid(serviceName);
    const QString pids = pid.isValid() ? QString::number(pid.value()) : QStringLiteral("unknown");
    Log::info(QStringLiteral("another instance is already running (pid ") + pids +
              QStringLiteral("); showing it and exiting"));
    const QDBusMessage show = QDBusMessage::createMethodCall(serviceName, objectPath, serviceName,
                                                             QStringLiteral("Show"));
    // Events keep flowing while it waits, so a copy in this very process can answer too.
    m_bus.call(show, QDBus::BlockWithGui, kShowTimeoutMs);
    return false;
}

void SingleInstance::Show()
{
    if (isSignalConnected(QMetaMethod::fromSignal(&SingleInstance::showRequested)))
        emit showRequested();
    else
        m_pending = true;
}

void SingleInstance::connectNotify(const QMetaMethod& signal)
{
    if (signal != QMetaMethod::fromSignal(&SingleInstance::showRequested) || !m_pending)
        return;
    m_pending = false;
    // The connection is complete only once this returns.
    QMetaObject::invokeMethod(this, &SingleInstance::showRequested, Qt::QueuedConnection);
}
