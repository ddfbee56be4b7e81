#pragma once

#include <QObject>
#include <QString>
#include <QStringList>
#include <QTimer>

#include <memory>
#include <mutex>

class QSocketNotifier;

// What the kernel says about the networks the computer is on, in IPv4, which is what the
// speakers speak: the preferred default route and the addresses of the interfaces that are
// up with a link, loopback aside.
struct NetworkFacts {
    QString defaultRoute;  // "wlan0 via 192.168.1.1"; empty without one
    QStringList addresses; // "wlan0 192.168.1.23", sorted

    bool isUsable() const { return !addresses.isEmpty(); }
    bool operator==(const NetworkFacts&) const = default;
};

// Whether `after` is on a network that `before` was not on: it has an address, and an
// address or a default route it did not have before. A network without a default route
// is as good as any, since the speakers are on the local network; losing an address or a
// route is leaving a network, which needs nothing done.
bool joinsNetwork(const NetworkFacts& before, const NetworkFacts& after);

// The facts as the kernel has them now.
NetworkFacts readNetworkFacts();

// Reports each change of the network the computer is on, from the kernel's routing
// messages: joining a network after none, and hopping straight from one network to another,
// are one change each. The first usable report only describes how things are at start and
// is not a change; reports of no usable network are ignored.
class NetworkWatch : public QObject {
    Q_OBJECT
public:
    explicit NetworkWatch(QObject* parent = nullptr);
    ~NetworkWatch() override;

    void start();

    // One reading of the facts (public so the rule can be exercised without a kernel).
    void report(const NetworkFacts& facts);
    // The facts last reported.
    NetworkFacts facts() const;

signals:
    void changed();

private:
    void read();

    int m_socket = -1;
    std::unique_ptr<QSocketNotifier> m_notifier;
    QTimer m_settle;
    bool m_reading = false;
    bool m_readAgain = false;

    mutable std::mutex m_lock;
    bool m_seenUsable = false;
    NetworkFacts m_facts;
};
