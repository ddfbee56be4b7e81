#pragma once

#include <QDBusConnection>
#include <QObject>

#include <functional>

// Reports each wake from sleep, from logind's PrepareForSleep(false) on the system bus.
// The bus is reached off the main thread; without a system bus nothing is ever reported.
class SleepWatch : public QObject {
    Q_OBJECT
public:
    using Bus = std::function<QDBusConnection()>;

    explicit SleepWatch(QObject* parent = nullptr);
    // Listens on the bus `bus` answers (tests use a private one).
    explicit SleepWatch(Bus bus, QObject* parent = nullptr);

    // Whether the subscription to logind's signal is in place.
    bool isListening() const { return m_listening; }

signals:
    void woke();

private slots:
    void prepareForSleep(bool sleeping);

private:
    bool m_listening = false;
};
