#pragma once

#include "HttpAnswer.h"
#include "emulator/Emulator.h"

#include <QDeadlineTimer>
#include <QHash>
#include <QList>
#include <QObject>
#include <QSet>
#include <QUrl>

#include <functional>
#include <mutex>
#include <optional>

namespace emulator {

// Event subscriptions to the players' services and the event messages that follow them, as
// the UPnP device architecture's eventing describes them: SUBSCRIBE with a callback makes a
// subscription (an SID and a duration), SUBSCRIBE with the SID renews it, UNSUBSCRIBE ends
// it; each subscription gets an initial event with every evented variable (SEQ 0), then an
// event whenever they change (SEQ counting up), until it ends or expires. Lives on the
// emulator's thread; `delivered` may be read from any.
class EventSubscriptions : public QObject {
public:
    // The event body of `service` at player `host` now; nothing for an unknown one.
    using Body =
        std::function<std::optional<QByteArray>(const QString& host, const QString& service)>;

    explicit EventSubscriptions(Body body, QObject* parent = nullptr);

    // The answer to a SUBSCRIBE or UNSUBSCRIBE for `service` at the player the request
    // reached.
    HttpAnswer answer(const Request& request, const QString& service, const QByteArray& uid);
    // Sends an event to every subscription whose variables changed since its last one, and
    // forgets the expired.
    void publishChanges();
    // Ends every subscription to the player at `host` (a player pulled from the wall).
    void forget(const QString& host);

    QList<EventMessage> delivered() const;

private:
    struct Subscription {
        QString sid;
        QString host;
        QString service;
        QList<QUrl> callbacks;
        QDeadlineTimer expiry;
        quint32 seq = 0;
        QByteArray lastBody;
    };

    HttpAnswer subscribe(const Request& request, const QString& service, const QByteArray& uid);
    HttpAnswer renew(const Request& request);
    HttpAnswer unsubscribe(const Request& request);
    Subscription* find(const QByteArray& sid, const Request& request);
    void send(Subscription& subscription, QByteArray body);
    void sendNext(const QString& sid);
    void deliver(EventMessage message, QList<QUrl> callbacks);
    void record(const EventMessage& message);

    Body m_body;
    QList<Subscription> m_subscriptions;
    quint64 m_made = 0;
    // Messages waiting for the one before them to be delivered, per SID.
    QHash<QString, QList<std::pair<EventMessage, QList<QUrl>>>> m_outbox;
    QSet<QString> m_sending;
    mutable std::mutex m_mutex;
    QList<EventMessage> m_delivered;
};

} // namespace emulator
