#pragma once

#include "sonos/HttpResponseParser.h"

#include <QAbstractSocket>
#include <QByteArray>
#include <QList>
#include <QObject>
#include <QTimer>
#include <QUrl>

#include <chrono>
#include <functional>
#include <utility>

class QTcpSocket;

// One request and its answer over a connection the exchange controls itself, so that
// giving up really ends the work: at a time-out or a cap the socket is aborted on this
// thread and nothing keeps reading on another. A reused connection that closes before any
// answer is tried once more on a new one. Lives on the thread that starts it, which must have
// an event loop, and deletes itself after calling `done`.
class HttpExchange : public QObject {
public:
    struct Result {
        enum class Kind {
            answered,     // status and body
            notHttp,      // nothing, or something else than HTTP, came back
            headTooLarge, // the header section did not end within its cap
            bodyTooLarge, // the body is over its cap
            badFraming,   // the body's end could not be known
            timedOut,     // no progress for `idle`, or no answer within `whole`
            failed,       // the connection failed: `socketError`, `errorText`
        };
        Kind kind = Kind::notHttp;
        int status = -1;
        QByteArray body;
        // The answer's header fields as sent; `field` finds one by name, in any case.
        QList<std::pair<QByteArray, QByteArray>> fields;
        QByteArray field(QByteArrayView name) const;
        QAbstractSocket::SocketError socketError = QAbstractSocket::UnknownSocketError;
        QString errorText;
    };

    struct Limits {
        std::chrono::milliseconds idle;
        std::chrono::milliseconds whole;
        qint64 bodyCap;
    };

    // `request` is the whole request as it goes on the wire, for `url`'s host and port
    // (http, or https with the usual certificate checks).
    static void start(const QUrl& url, QByteArray request, Limits limits,
                      std::function<void(const Result&)> done);

private:
    HttpExchange(const QUrl& url, QByteArray request, Limits limits,
                 std::function<void(const Result&)> done);

    void begin();
    void open();
    void attach();
    void send();
    void receive();
    void closedByPeer();
    void failed(QAbstractSocket::SocketError error);
    void failedWith(QAbstractSocket::SocketError error);
    void settleFromParser();
    void finish(Result result, bool keepConnection = false);

    QUrl m_url;
    QString m_key;
    QByteArray m_request;
    Limits m_limits;
    std::function<void(const Result&)> m_done;
    HttpResponseParser m_parser;
    QTcpSocket* m_socket = nullptr;
    bool m_reused = false;
    bool m_retried = false;
    bool m_finished = false;
    QTimer m_idle;
    QTimer m_whole;
};
