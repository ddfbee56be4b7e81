#include "desktop/SleepWatch.h"

#include <QCoreApplication>
#include <QPointer>
#include <QThreadPool>

namespace {
const QString kService = QStringLiteral("org.freedesktop.login1");
const QString kPath = QStringLiteral("/org/freedesktop/login1");
const QString kInterface = QStringLiteral("org.freedesktop.login1.Manager");
} // namespace

SleepWatch::SleepWatch(QObject* parent)
    : SleepWatch(&QDBusConnection::systemBus, parent)
{
}

SleepWatch::SleepWatch(Bus bus, QObject* parent)
    : QObject(parent)
{
    // Connecting to the bus is a socket handshake: a pool thread does it, and the
    // subscription is made back on the main thread once the bus is there.
    QPointer<SleepWatch> self(this);
    QThreadPool::globalInstance()->start([self, bus] {
        if (!bus().isConnected())
            return;
        QMetaObject::invokeMethod(
            QCoreApplication::instance(),
            [self, bus] {
                if (self)
                    self->m_listening = bus().connect(kService, kPath, kInterface,
                                                      QStringLiteral("PrepareForSleep"),
                                                      self.data(), SLOT(prepareForSleep(bool)));
            },
            Qt::QueuedConnection);
    });
}

void SleepWatch::prepareForSleep(bool sleeping)
{
    if (!sleeping)
        emit woke();
}
