#pragma once

#include <QByteArray>
#include <QHostAddress>
#include <QList>
#include <QTcpServer>
#include <QTcpSocket>
#include <QTimer>

#include <chrono>

// A stand-in for a zone player that answers every request with bytes the test chose, for
// answer shapes no well-behaved player produces (attributes on value tags, signs, garbage,
// slow trickles). It runs on the test's own event loop.
class ScriptedPlayer : public QObject {
public:
    explicit ScriptedPlayer(const QString& host, quint16 port = 1400)
    {
        connect(&m_server, &QTcpServer::newConnection, this, &ScriptedPlayer::accept);
        m_listening = m_server.listen(QHostAddress(host), port);
    }

    bool isListening() const { return m_listening; }

    // The whole answer, status line included, sent as soon as a request is complete. With
    // `perByte`, the head goes at once and the body follows one byte each `perByte`, so
    // that every byte is progress the client can see.
    void setReply(QByteArray raw, std::chrono::milliseconds perByte = {})
    {
        m_reply = std::move(raw);
        m_perByte = perByte;
        m_closing = false;
    }
    // A 200 (or `status`) answer carrying `body` with its length.
    void setBody(const QByteArray& body, int status = 200, const QByteArray& extraHeaders = {})
    {
        setReply("HTTP/1.1 " + QByteArray::number(status) + " X\r\nContent-Type: text/xml\r\n" +
                 extraHeaders + "Content-Length: " + QByteArray::number(body.size()) +
                 "\r\nConnection: close\r\n\r\n" + body);
    }
    // An envelope around `inner`, the way a player wraps every answer.
    void setSoapAnswer(const QByteArray& inner)
    {
        setBody("<?xml version=\"1.0\"?><s:Envelope "
                "xmlns:s=\"http://schemas.xmlsoap.org/soap/envelope/\"><s:Body>" +
                inner + "</s:Body></s:Envelope>");
    }
    // Requests are read and never answered; with `close`, the connection is closed on them.
    void setSilent(bool close = false)
    {
        m_reply.clear();
        m_closing = close;
    }

    // `start`, then `more` again and again for as long as the connection stays open: a head
    // or body that never ends. With `every`, one `more` each `every`; otherwise as fast as
    // the connection takes it.
    void setEndless(QByteArray start, QByteArray more, std::chrono::milliseconds every = {})
    {
        setReply(std::move(start));
        m_endless = std::move(more);
        m_every = every;
    }

    const QList<QByteArray>& requests() const { return m_requests; }
    // Connections the client has not closed yet.
    int openConnections() const { return m_open; }

private:
    void accept()
    {
        while (QTcpSocket* socket = m_server.nextPendingConnection()) {
            socket->setParent(this);
            auto buffer = std::make_shared<QByteArray>();
            connect(socket, &QTcpSocket::readyRead, this, [this, socket, buffer] {
                buffer->append(socket->readAll());
                if (!isComplete(*buffer))
                    return;
                m_requests.append(*buffer);
                buffer->clear();
                answer(socket);
            });
            ++m_open;
            connect(socket, &QTcpSocket::disconnected, this, [this, socket] {
                --m_open;
                socket->deleteLater();
            });
        }
    }

    static bool isComplete(const QByteArray& request)
    {
        const qsizetype headEnd = request.indexOf("\r\n\r\n");
        if (headEnd < 0)
            return false;
        qsizetype length = 0;
        for (const QByteArray& line : request.left(headEnd).split('\n')) {
            if (line.toLower().startsWith("content-length:"))
                length = line.mid(15).trimmed().toLongLong();
        }
        return request.size() >= headEnd + 4 + length;
    }

    void answer(QTcpSocket* socket)
    {
        if (m_closing)
            socket->disconnectFromHost();
        if (m_reply.isEmpty())
            return;
        if (!m_endless.isEmpty())
            return stream(socket);
        if (m_perByte.count() == 0) {
            socket->write(m_reply);
            socket->disconnectFromHost();
            return;
        }
        const qsizetype headEnd = m_reply.indexOf("\r\n\r\n");
        auto sent = std::make_shared<qsizetype>(headEnd < 0 ? 0 : headEnd + 4);
        socket->write(m_reply.left(*sent));
        auto* timer = new QTimer(socket);
        connect(timer, &QTimer::timeout, socket, [socket, timer, sent, reply = m_reply] {
            if (*sent == reply.size()) {
                timer->stop();
                socket->disconnectFromHost();
                return;
            }
            socket->write(reply.mid((*sent)++, 1));
        });
        timer->start(m_perByte);
    }

    void stream(QTcpSocket* socket)
    {
        socket->write(m_reply);
        auto* timer = new QTimer(socket);
        connect(timer, &QTimer::timeout, socket, [socket, more = m_endless] {
            // Kept a little ahead of the reader, so that the flood never waits on it.
            if (socket->bytesToWrite() < 256 * 1024)
                socket->write(more);
        });
        timer->start(m_every);
    }

    QTcpServer m_server;
    QByteArray m_endless;
    std::chrono::milliseconds m_every{};
    int m_open = 0;
    bool m_listening = false;
    bool m_closing = false;
    QByteArray m_reply;
    std::chrono::milliseconds m_perByte{};
    QList<QByteArray> m_requests;
};
