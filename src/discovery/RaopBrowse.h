#pragma once

#include <QDBusConnection>
#include <QMap>
#include <QObject>
#include <QSet>
#include <QString>
#include <QTimer>

#include <chrono>

// One browse of the AirPlay (RAOP) receivers through the Avahi daemon: a service browser for
// "_raop._tcp" on every interface, its announcements collected until the daemon has told all
// it knows, it fails, or the time-out comes, whichever is first. Then `finished` is emitted
// once and the browser is freed.
class RaopBrowse : public QObject {
    Q_OBJECT
public:
    using Receivers = QMap<QString, QSet<QString>>;
    // Receiver identity → its instance name as announced ("b8e9378d4e2f@Bedroom") and its
    // domain, which a resolve of it asks for.
    struct Service {
        QString instance;
        QString domain;
    };
    using Services = QMap<QString, Service>;

    // More names than a household could hold are not kept.
    static constexpr int maxNames = 1024;

    RaopBrowse(QDBusConnection bus, std::chrono::milliseconds timeout, QObject* parent = nullptr);
    ~RaopBrowse() override;

    // The receivers of the answer, as announced; complete once `finished` is emitted.
    const Services& services() const { return m_services; }

signals:
    void finished(const RaopBrowse::Receivers& receivers);

private slots:
    // The daemon's ServiceBrowser signals, for whichever browser sent them: ours is the only
    // one of this type on this connection while the browse runs.
    void itemNew(int interface, int protocol, const QString& name, const QString& type,
                 const QString& domain, uint flags);
    void itemRemove(int interface, int protocol, const QString& name, const QString& type,
                    const QString& domain, uint flags);
    void allForNow();
    void failure(const QString& error);

private:
    bool subscribe(const char* signal, const char* slot);
    void unsubscribe(const char* signal, const char* slot);
    void finish();

    QDBusConnection m_bus;
    QString m_browser;
    Receivers m_receivers;
    Services m_services;
    // Per receiver identity and name, how many interfaces announce it, so that a receiver
    // that leaves one network but stays on another is kept.
    QMap<QPair<QString, QString>, int> m_seen;
    bool m_finished = false;
    bool m_toldTooMany = false;
    QTimer m_deadline;
};
