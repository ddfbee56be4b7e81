#pragma once

#include "sonos/SonosDevice.h"

#include <QByteArray>
#include <QFuture>
#include <QObject>
#include <QString>
#include <QTimer>

#include <chrono>
#include <memory>
#include <optional>

class EventListener;

// One subscription to the events of one service of a player (GENA): SUBSCRIBE with this
// thread's callback, renewal by SID well before the granted time runs out, UNSUBSCRIBE when
// stopped or destroyed. Messages arrive in order of SEQ; a gap in it means messages were
// lost, so the subscription is made afresh, whose initial message carries every variable
// again. Lives on the thread that made it, which must run an event loop.
class EventSubscription : public QObject {
    Q_OBJECT
public:
    // `eventPath`: the service's event URL at the player, "/MediaRenderer/RenderingControl/Event".
    EventSubscription(SonosDevice player, QString eventPath,
                      std::chrono::seconds requested = std::chrono::seconds(1800),
                      QObject* parent = nullptr);
    ~EventSubscription() override;

    // Subscribes, or subscribes afresh when already subscribed.
    void start();
    // Unsubscribes; no more messages until the next start. Finishes once the player
    // answered the UNSUBSCRIBE, or at once when there was nothing to end.
    QFuture<void> stop();

    bool isSubscribed() const { return !m_sid.isEmpty(); }
    const QString& sid() const { return m_sid; }
    const SonosDevice& player() const { return m_player; }
    const QString& eventPath() const { return m_path; }

signals:
    // One event message's body (a property set), the initial one first.
    void notified(const QByteArray& body);
    // The player refused the subscription or its renewal, or could not be reached; nothing
    // more comes until the next start.
    void failed();

private:
    void subscribe();
    void renew();
    QFuture<void> unsubscribeFrom(const QString& sid);
    void subscribed(const QString& sid, int seconds);
    void receive(const QString& sid, quint32 seq, const QByteArray& body);
    void fail(const QString& why);
    void forget();
    QByteArray request(const QByteArray& method, const QByteArray& fields) const;

    SonosDevice m_player;
    QString m_path;
    std::chrono::seconds m_requested;
    std::shared_ptr<EventListener> m_listener;
    QString m_sid;
    quint32 m_nextSeq = 0;
    // Counts the subscriptions made, so that a late answer to an earlier one is ignored.
    quint64 m_attempt = 0;
    bool m_expecting = false;
    QTimer m_renewal;
};

// Subscribes `player` to `eventPath` ("/ZoneGroupTopology/Event"), waits for the initial
// message, unsubscribes, and answers the text of the property named `property` as the body
// carries it (still escaped, like a SOAP answer's field). Nothing, with one log line, when
// the player refuses, no message comes within `timeout`, or the message lacks the property.
// Callable from any thread that runs an event loop; the future finishes on that thread.
QFuture<std::optional<QString>> firstEventProperty(const SonosDevice& player,
                                                   const QString& eventPath,
                                                   const QString& property,
                                                   std::chrono::milliseconds timeout);
