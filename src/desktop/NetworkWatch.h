#pragma once

#include <QObject>

#include <mutex>

// Reports each change of the network the computer is on, from the platform's reachability
// reports. The first usable report only describes how things are at start and is not a
// change; reports of no usable network are ignored. Without a reachability backend nothing
// is ever reported.
class NetworkWatch : public QObject {
    Q_OBJECT
public:
    explicit NetworkWatch(QObject* parent = nullptr);

    void start();

    // One reachability report (public so the rule can be exercised without a backend).
    void report(bool usable);

signals:
    void changed();

private:
    std::mutex m_lock;
    bool m_seenFirst = false;
};
