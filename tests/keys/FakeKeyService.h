#pragma once

#include "keyservice/Protocol.h"

#include <QLocalServer>
#include <QLocalSocket>
#include <QPointer>

#include <vector>

// A stand-in for velotide-keyd on a real Unix socket: it greets each client with `hello`
// (and `health` when accepted), remembers what the client sends, and sends what it is told.
class FakeKeyService {
public:
    explicit FakeKeyService(QString path)
        : m_path(std::move(path))
    {
        QObject::connect(&m_server, &QLocalServer::newConnection, &m_server, [this] { accept(); });
    }
    ~FakeKeyService() { stop(); }

    bool start()
    {
        QLocalServer::removeServer(m_path);
        return m_server.listen(m_path);
    }
    // Stops listening (the socket file goes) and drops the client.
    void stop()
    {
        m_server.close();
        dropClient();
    }
    void dropClient()
    {
        if (m_client) {
            m_client->abort();
            m_client->deleteLater();
        }
        m_client = nullptr;
    }

    void send(const keyd::ServiceMessage& message) { sendBytes(toBytes(keyd::encode(message))); }
    void sendBytes(const QByteArray& bytes)
    {
        if (m_client) {
            m_client->write(bytes);
            m_client->flush();
        }
    }
    static QByteArray toBytes(const keyd::Record& record)
    {
        return QByteArray(reinterpret_cast<const char*>(record.data()), qsizetype(record.size()));
    }

    std::vector<keyd::ClientMessage> received;
    int connections = 0;
    keyd::Hello hello;

private:
    void accept()
    {
        while (QLocalSocket* next = m_server.nextPendingConnection()) {
            dropClient();
            m_client = next;
            m_buffer = keyd::RecordBuffer();
            ++connections;
            QObject::connect(next, &QLocalSocket::readyRead, next, [this, next] { read(next); });
            send(hello);
            if (hello.status != keyd::HelloStatus::accepted ||
                hello.version != keyd::kProtocolVersion) {
                next->disconnectFromServer();
                continue;
            }
            send(keyd::Health{1});
        }
    }

    void read(QLocalSocket* socket)
    {
        const QByteArray bytes = socket->readAll();
        m_buffer.append(std::span(reinterpret_cast<const std::uint8_t*>(bytes.constData()),
                                  std::size_t(bytes.size())));
        while (const auto record = m_buffer.take()) {
            if (const auto message = keyd::decodeClientMessage(*record))
                received.push_back(*message);
        }
    }

    QString m_path;
    QLocalServer m_server;
    QPointer<QLocalSocket> m_client;
    keyd::RecordBuffer m_buffer;
};
