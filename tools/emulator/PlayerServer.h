#pragma once

#include "HttpConnection.h"

#include <QObject>
#include <QTcpServer>

#include <optional>

namespace emulator {

// The HTTP side of one zone player: a listening socket on the player's own address and
// the connections it accepted.
class PlayerServer : public QObject {
    Q_OBJECT
public:
    PlayerServer(QString host, quint16 port, QByteArray serverHeader,
                 HttpConnection::Handler handler, QObject* parent = nullptr);

    std::optional<QString> listen();
    // Stops listening and drops every connection, as a player pulled from the wall.
    void goOffline();
    bool isListening() const { return m_server.isListening(); }
    const QString& host() const { return m_host; }

private:
    void acceptPending();

    QString m_host;
    quint16 m_port;
    QByteArray m_serverHeader;
    HttpConnection::Handler m_handler;
    QTcpServer m_server;
};

} // namespace emulator
