#pragma once

#include <QObject>
#include <QString>

class QTcpSocket;

// Connections that finished an answer and may carry the next request to the same host, kept
// for a short while so that a burst of volume changes costs one TCP handshake, not one each.
// One set per thread, owned by that thread: the main thread's by the application object, a
// worker's until the thread finishes.
class HttpConnections : public QObject {
public:
    static HttpConnections& forThisThread();

    // An idle connection to `key` (scheme, host and port), or null; the caller owns it.
    QTcpSocket* take(const QString& key);
    // Keeps `socket` for a later take(); it is dropped when the peer closes it, sends
    // anything unasked, or after a few seconds unused.
    void park(const QString& key, QTcpSocket* socket);

private:
    HttpConnections() = default;
    void drop(QTcpSocket* socket);
};
