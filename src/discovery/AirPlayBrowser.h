#pragma once

#include <QDBusConnection>
#include <QElapsedTimer>
#include <QFuture>
#include <QMap>
#include <QObject>
#include <QSet>
#include <QString>

#include <chrono>
#include <memory>
#include <optional>

// The AirPlay (RAOP) receivers on the local network, by name, as the Avahi daemon browses
// them over D-Bus. A Sonos player that takes AirPlay announces itself as one, under its room
// name, so two receivers of one name make choosing by name unsafe. One browse at a time,
// shared by every caller, remembered for five minutes. Main thread only; answers come back
// on the main thread, and no call ever waits on the daemon.
class AirPlayBrowser : public QObject {
    Q_OBJECT
public:
    // Receiver name → the receiver identities (twelve upper-case hex digits) that carry it.
    using Receivers = QMap<QString, QSet<QString>>;

    // An instance name "B8E9378D4E2F@Bedroom": the identity, upper-cased, and the name,
    // trimmed; nothing for any other shape.
    struct Instance {
        QString id;
        QString name;
    };
    static std::optional<Instance> instance(const QString& serviceName);

    // Where a receiver takes its audio.
    struct Address {
        QString host; // as the daemon gives it: "10.0.0.5" or "fe80::1"
        quint16 port = 0;
        // The receiver's TXT record ("tp" → "UDP", "et" → "0,1", "cn" → "0,1"), which says
        // how it wants to be spoken to.
        QMap<QString, QString> properties;
    };

    // `bus`: the system bus by default (tests give their own).
    explicit AirPlayBrowser(QDBusConnection bus = QDBusConnection::systemBus(),
                            QObject* parent = nullptr);
    ~AirPlayBrowser() override;

    QFuture<Receivers>
    receivers(std::chrono::milliseconds timeout = std::chrono::milliseconds(2500));
    // Whether `name` is carried by two or more receivers and, when the speaker's own
    // identity is known, by the speaker among them.
    QFuture<bool> isAmbiguous(const QString& name, const std::optional<QString>& receiverID);
    // The identities of the receivers named `name`, sorted, from the browse that receivers()
    // answers.
    QFuture<QStringList> identities(const QString& name);
    // Asks the daemon where the receiver of that identity (one the last browse found) is
    // now. Nothing, with one log line, when it is unknown or has gone.
    QFuture<std::optional<Address>> resolve(const QString& id);

private:
    class Browse;

    void finished(const Receivers& receivers);

    QDBusConnection m_bus;
    std::optional<Receivers> m_cache;
    QMap<QString, QPair<QString, QString>> m_services; // identity → instance name, domain
    QElapsedTimer m_stamp;
    std::unique_ptr<Browse> m_browse;
};
