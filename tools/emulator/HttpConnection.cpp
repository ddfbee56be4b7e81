#include "HttpConnection.h"

#include <QTimer>

#include <chrono>

namespace emulator {

HttpConnection::HttpConnection(QTcpSocket* socket, QString host, QByteArray serverHeader,
                               Handler handler, QObject* parent)
    : QObject(parent)
    , m_socket(socket)
    , m_host(std::move(host))
    , m_server(std::move(serverHeader))
    , m_handler(std::move(handler))
{
    m_socket->setParent(this);
    connect(m_socket, &QTcpSocket::readyRead, this, &HttpConnection::readAvailable);
    connect(m_socket, &QTcpSocket::disconnected, this, &QObject::deleteLater);
    readAvailable();
}

void HttpConnection::abort()
{
    m_socket->abort();
    deleteLater();
}

void HttpConnection::readAvailable()
{
    const QByteArray bytes = m_socket->readAll();
    if (m_silent || m_closing)
        return;
    const qint64 now = std::chrono::duration_cast<std::chrono::nanoseconds>(
                           std::chrono::steady_clock::now().time_since_epoch())
                           .count();
    m_parser.feed(bytes);
    while (std::optional<Request> request = m_parser.take()) {
        request->host = m_host;
        request->receivedNs = now;
        if (m_answeredNs >= 0 && m_pending.isEmpty() && !m_busy)
            request->idleMs = (now - m_answeredNs) / 1000000;
        m_pending.enqueue(*std::move(request));
    }
    serveNext();
}

void HttpConnection::serveNext()
{
    while (!m_busy && !m_silent && !m_closing && !m_pending.isEmpty()) {
        m_busy = true;
        carryOut(m_handler(m_pending.dequeue()));
    }
    if (!m_busy && !m_closing && m_pending.isEmpty() && m_parser.error())
        refuse(*m_parser.error());
}

void HttpConnection::carryOut(const Reply& reply)
{
    switch (reply.kind) {
    case Reply::Kind::Silent:
        m_silent = true;
        return;
    case Reply::Kind::Close:
        m_closing = true;
        m_socket->disconnectFromHost();
        return;
    case Reply::Kind::Send:
        if (reply.perByteMs > 0) {
            // The head at once, so that every later byte is progress of the body.
            const qsizetype head = reply.bytes.indexOf("\r\n\r\n") + 4;
            m_socket->write(reply.bytes.left(head));
            trickle(reply, head);
        } else if (reply.delayMs > 0) {
            QTimer::singleShot(reply.delayMs, this, [this, reply] { send(reply); });
        } else {
            send(reply);
        }
        return;
    }
}

void HttpConnection::trickle(const Reply& reply, qsizetype sent)
{
    if (sent == reply.bytes.size() - 1) {
        Reply last = reply;
        last.bytes = reply.bytes.right(1);
        return send(last);
    }
    m_socket->write(reply.bytes.mid(sent, 1));
    QTimer::singleShot(reply.perByteMs, this, [this, reply, sent] { trickle(reply, sent + 1); });
}

void HttpConnection::send(const Reply& reply)
{
    m_socket->write(reply.bytes);
    m_busy = false;
    m_answeredNs = std::chrono::duration_cast<std::chrono::nanoseconds>(
                       std::chrono::steady_clock::now().time_since_epoch())
                       .count();
    if (reply.closeAfter) {
        m_closing = true;
        m_socket->disconnectFromHost();
        return;
    }
    serveNext();
}

void HttpConnection::refuse(const HttpRequestParser::Error& error)
{
    HttpAnswer answer = plainStatus(error.status);
    m_socket->write(serialize(answer, m_server, true));
    m_closing = true;
    m_socket->disconnectFromHost();
}

} // namespace emulator
