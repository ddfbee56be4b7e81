#include "sonos/HttpConnections.h"

#include <QCoreApplication>
#include <QPointer>
#include <QTcpSocket>
#include <QThread>
#include <QTimer>

namespace {

using namespace std::chrono_literals;

// Players close idle connections after a while of their own; a connection found closed on
// reuse costs a retry, so idle ones are not kept long.
constexpr auto kIdleLifetime = 15s;
// More than a handful of idle connections is never needed by a controller of one speaker.
constexpr int kMaxIdle = 8;

const char* const kKeyProperty = "velotideConnectionKey";
// The socket has timers of its own among its children; this one is ours.
const char* const kExpiryName = "velotideIdleExpiry";

} // namespace

HttpConnections& HttpConnections::forThisThread()
{
    thread_local QPointer<HttpConnections> connections;
    if (connections)
        return *connections;
    connections = new HttpConnections;
    QCoreApplication* app = QCoreApplication::instance();
    if (app && app->thread() == QThread::currentThread())
        connections->setParent(app);
    else
        QObject::connect(QThread::currentThread(), &QThread::finished, connections,
                         &QObject::deleteLater);
    return *connections;
}

QTcpSocket* HttpConnections::take(const QString& key)
{
    const auto parked = findChildren<QTcpSocket*>(QString(), Qt::FindDirectChildrenOnly);
    for (QTcpSocket* socket : parked) {
        if (socket->property(kKeyProperty).toString() != key)
            continue;
        if (socket->state() != QAbstractSocket::ConnectedState) {
            drop(socket);
            continue;
        }
        socket->disconnect(this);
        delete socket->findChild<QTimer*>(QLatin1String(kExpiryName),
                                          Qt::FindDirectChildrenOnly);
        socket->setParent(nullptr);
        return socket;
    }
    return nullptr;
}

void HttpConnections::park(const QString& key, QTcpSocket* socket)
{
    const auto parked = findChildren<QTcpSocket*>(QString(), Qt::FindDirectChildrenOnly);
    if (parked.size() >= kMaxIdle)
        drop(parked.first());
    socket->setParent(this);
    socket->setProperty(kKeyProperty, key);
    connect(socket, &QTcpSocket::readyRead, this, [this, socket] { drop(socket); });
    connect(socket, &QTcpSocket::disconnected, this, [this, socket] { drop(socket); });
    auto* expiry = new QTimer(socket);
    expiry->setObjectName(QLatin1String(kExpiryName));
    expiry->setSingleShot(true);
    connect(expiry, &QTimer::timeout, this, [this, socket] { drop(socket); });
    expiry->start(kIdleLifetime);
}

void HttpConnections::drop(QTcpSocket* socket)
{
    socket->disconnect(this);
    socket->abort();
    socket->deleteLater();
    socket->setParent(nullptr);
}
