#pragma once

#include <QByteArray>
#include <QHash>
#include <QHostAddress>
#include <QList>
#include <QObject>
#include <QPointer>
#include <QString>
#include <QTcpServer>

#include <functional>
#include <memory>

// The callback the players send their event messages (GENA NOTIFY) to: a small HTTP server
// of the application's own, on an ephemeral port of the address of the interface that
// reaches the players. It takes a message only from the player a subscription was made
// with, for an SID it knows, within the caps of a request; anything else is refused or
// dropped with one log line and never reaches a subscriber. Lives on the thread that made
// it, which must run an event loop.
class EventListener : public QObject {
public:
    struct Message {
        QString sid;
        quint32 seq = 0;
        QByteArray body;
    };
    using Receiver = std::function<void(const Message&)>;

    static constexpr qint64 bodyCap = 512 * 1024;
    static constexpr int wholeRequestMs = 5000;

    // The listener of this thread for the interface that reaches `playerHost`, shared by
    // every subscription to players behind that interface; made when none is alive. Null
    // when no interface reaches the player or nothing can listen on it.
    static std::shared_ptr<EventListener> forPlayer(const QString& playerHost);

    explicit EventListener(const QHostAddress& address);
    ~EventListener() override;

    bool isListening() const { return m_server.isListening(); }
    // "http://192.168.1.20:43125/events", for the CALLBACK field.
    QString callbackUrl() const;

    // A subscription to `playerHost` is under way: its initial message may come before the
    // answer that names its SID, so such messages are taken and held until `route` names
    // the SID, or dropped when the last expectation for that player ends.
    void expect(const QString& playerHost);
    void unexpect(const QString& playerHost);
    // Messages for `sid` from `playerHost` go to `receiver` while `context` lives.
    void route(const QString& sid, const QString& playerHost, QObject* context, Receiver receiver);
    void unroute(const QString& sid);

private:
    struct Route {
        QString host;
        QPointer<QObject> context;
        Receiver receiver;
    };
    struct Held {
        QString host;
        Message message;
    };

    void accept();
    void read(class QTcpSocket* socket);
    // The status to answer a complete request with; 200 when the message was taken.
    int take(const class EventRequestParser& request, const QHostAddress& peer);
    void deliver(const Route& route, const Message& message);

    QTcpServer m_server;
    QHash<QString, Route> m_routes;
    QHash<QString, int> m_expected;
    QList<Held> m_held;
};
