#pragma once

#include "keys/EventTap.h"

#include <QFileSystemWatcher>
#include <QObject>
#include <QTimer>

#include <chrono>
#include <memory>

// Keeps the session's key capture on the best backend there is now: the key service from the
// moment its socket appears and is open to this user, the fallback (the X11 grab, or none)
// while it is not. Users start the service after the application, as the application tells
// them to, so the choice is made again whenever the socket's folder changes and on every
// watchdog pass. A switch happens here, between events, never inside key handling. Main
// thread only.
class KeyCapture : public QObject {
    Q_OBJECT
public:
    explicit KeyCapture(EventTap::Callbacks callbacks, EventTap::Options options = {},
                        QObject* parent = nullptr);
    ~KeyCapture() override;

    // The tap in use now; another takes its place after `tapReplaced`.
    EventTap& tap() const { return *m_tap; }

    // Installs the capture and from now on runs a watchdog pass every `interval`.
    void start(std::chrono::milliseconds interval);

signals:
    // A new tap took over and is about to be installed; the old one goes once this returns,
    // so whoever held it lets go of it here.
    void tapReplaced(EventTap* tap);

private:
    void watchPass();
    void watchFolder();
    // Switches to the backend the socket calls for, when it is not the one in use.
    void follow();

    EventTap::Callbacks m_callbacks;
    QString m_servicePath;
    std::unique_ptr<EventTap> m_tap;
    bool m_onService = false;
    // Input access as of the last look (start, switch or watchdog pass): a service going
    // away makes its tap untrusted before the switch, which must still say so.
    bool m_trusted = false;
    QFileSystemWatcher m_watcher;
    QTimer m_watchdog;
};
