#include "PlayerServer.h"

namespace emulator {

PlayerServer::PlayerServer(QString host, quint16 port, QByteArray serverHeader,
                           HttpConnection::Handler handler, QObject* parent)
    : QObject(parent)
    , m_host(std::move(host))
    , m_port(port)
    , m_serverHeader(std::move(serverHeader))
    , m_handler(std::move(handler))
{
    connect(&m_server, &QTcpServer::newConnection, this, &PlayerServer::acceptPending);
}

std::optional<QString> PlayerServer::listen()
{
    if (m_server.isListening())
        return std::nullopt;
    if (!m_server.listen(QHostAddress(m_host), m_port))
        return QStringLiteral("cannot listen on %1:%2 (%3)")
            .arg(m_host)
            .arg(m_port)
            .arg(m_server.errorString());
    return std::nullopt;
}

void PlayerServer::goOffline()
{
    m_server.close();
    for (HttpConnection* c : findChildren<HttpConnection*>(Qt::FindDirectChildrenOnly))
        c->abort();
}

// A player takes only so many connections at once; beyond that it hangs up at once, so
// a client that leaks connections finds out instead of growing the emulator.
void PlayerServer::acceptPending()
{
    constexpr qsizetype maxConnections = 128;
    while (QTcpSocket* socket = m_server.nextPendingConnection()) {
        if (findChildren<HttpConnection*>(Qt::FindDirectChildrenOnly).size() >= maxConnections) {
            socket->abort();
            socket->deleteLater();
            continue;
        }
        new HttpConnection(socket, m_host, m_serverHeader, m_handler, this);
    }
}

} // namespace emulator
