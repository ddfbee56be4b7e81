#pragma once

#include "HttpAnswer.h"
#include "HttpRequestParser.h"

#include <QObject>
#include <QQueue>
#include <QTcpSocket>

#include <functional>

namespace emulator {

// One accepted TCP connection of a player: cuts requests out of the stream, hands each
// to the player's handler, and carries out the reply it gets, one request after another
// (a later request waits while an earlier answer is delayed).
class HttpConnection : public QObject {
    Q_OBJECT
public:
    using Handler = std::function<Reply(Request)>;

    HttpConnection(QTcpSocket* socket, QString host, QByteArray serverHeader, Handler handler,
                   QObject* parent);
    void abort();

private:
    void readAvailable();
    void serveNext();
    void carryOut(const Reply& reply);
    void send(const Reply& reply);
    void trickle(const Reply& reply, qsizetype sent);
    void refuse(const HttpRequestParser::Error& error);

    QTcpSocket* m_socket;
    QString m_host;
    QByteArray m_server;
    Handler m_handler;
    HttpRequestParser m_parser;
    QQueue<Request> m_pending;
    bool m_busy = false;
    bool m_silent = false;
    bool m_closing = false;
    qint64 m_answeredNs = -1; // when the last answer went out; -1 before the first
};

} // namespace emulator
