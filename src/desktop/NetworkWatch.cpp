#include "desktop/NetworkWatch.h"

#include <QFile>
#include <QFutureWatcher>
#include <QPromise>
#include <QSocketNotifier>
#include <QThreadPool>

#include <algorithm>
#include <arpa/inet.h>
#include <cerrno>
#include <climits>
#include <ifaddrs.h>
#include <linux/netlink.h>
#include <linux/rtnetlink.h>
#include <net/if.h>
#include <net/route.h>
#include <sys/socket.h>
#include <unistd.h>
#include <utility>

namespace {

// A change arrives as a burst of messages (an address, its routes, the old network's going
// away); the facts are read once the burst is over, so a hop is judged whole.
constexpr int settleMs = 500;

QString ipv4Text(in_addr address)
{
    char text[INET_ADDRSTRLEN] = {};
    inet_ntop(AF_INET, &address, text, sizeof text);
    return QString::fromLatin1(text);
}

// /proc/net/route lists the routes of the caller's network namespace, one per line, with
// addresses as the hexadecimal value of the address in memory.
QString preferredDefaultRoute()
{
    QFile routes(QStringLiteral("/proc/net/route"));
    if (!routes.open(QIODevice::ReadOnly | QIODevice::Text))
        return {};
    QString best;
    qulonglong bestMetric = ULLONG_MAX;
    routes.readLine(); // the column titles
    while (!routes.atEnd()) {
        const QList<QByteArray> f = routes.readLine().simplified().split(' ');
        if (f.size() < 8 || f[1] != "00000000" || f[7] != "00000000")
            continue;
        bool ok = false;
        const qulonglong flags = f[3].toULongLong(&ok, 16);
        const qulonglong metric = f[6].toULongLong();
        if (!ok || !(flags & RTF_UP) || metric >= bestMetric)
            continue;
        const in_addr gateway{static_cast<in_addr_t>(f[2].toULong(nullptr, 16))};
        best = QString::fromUtf8(f[0]);
        if (gateway.s_addr != 0)
            best += QStringLiteral(" via ") + ipv4Text(gateway);
        bestMetric = metric;
    }
    return best;
}

} // namespace

bool joinsNetwork(const NetworkFacts& before, const NetworkFacts& after)
{
    if (!after.isUsable())
        return false;
    const bool newAddress =
        std::any_of(after.addresses.begin(), after.addresses.end(),
                    [&](const QString& a) { return !before.addresses.contains(a); });
    const bool newRoute =
        !after.defaultRoute.isEmpty() && after.defaultRoute != before.defaultRoute;
    return newAddress || newRoute;
}

NetworkFacts readNetworkFacts()
{
    NetworkFacts facts;
    ifaddrs* list = nullptr;
    if (getifaddrs(&list) == 0) {
        for (const ifaddrs* i = list; i; i = i->ifa_next) {
            const unsigned wanted = IFF_UP | IFF_RUNNING;
            if (!i->ifa_addr || i->ifa_addr->sa_family != AF_INET ||
                (i->ifa_flags & wanted) != wanted || (i->ifa_flags & IFF_LOOPBACK))
                continue;
            const auto* address = reinterpret_cast<const sockaddr_in*>(i->ifa_addr);
            facts.addresses << QString::fromUtf8(i->ifa_name) + u' ' + ipv4Text(address->sin_addr);
        }
        freeifaddrs(list);
    }
    facts.addresses.sort();
    facts.defaultRoute = preferredDefaultRoute();
    return facts;
}

NetworkWatch::NetworkWatch(QObject* parent)
    : QObject(parent)
{
    m_settle.setSingleShot(true);
    m_settle.setInterval(settleMs);
    connect(&m_settle, &QTimer::timeout, this, &NetworkWatch::read);
}

NetworkWatch::~NetworkWatch()
{
    m_notifier.reset();
    if (m_socket >= 0)
        ::close(m_socket);
}

void NetworkWatch::start()
{
    m_socket = ::socket(AF_NETLINK, SOCK_RAW | SOCK_NONBLOCK | SOCK_CLOEXEC, NETLINK_ROUTE);
    if (m_socket < 0)
        return;
    sockaddr_nl address{};
    address.nl_family = AF_NETLINK;
    address.nl_groups = RTMGRP_LINK | RTMGRP_IPV4_IFADDR | RTMGRP_IPV4_ROUTE;
    if (::bind(m_socket, reinterpret_cast<const sockaddr*>(&address), sizeof address) < 0) {
        ::close(m_socket);
        m_socket = -1;
        return;
    }
    m_notifier = std::make_unique<QSocketNotifier>(m_socket, QSocketNotifier::Read);
    connect(m_notifier.get(), &QSocketNotifier::activated, this, [this] {
        // The messages only say that something changed; the facts are read afresh. A full
        // queue (ENOBUFS) says the same.
        char buffer[8192];
        while (::recv(m_socket, buffer, sizeof buffer, 0) > 0 || errno == ENOBUFS) {
        }
        m_settle.start();
    });
    read();
}

void NetworkWatch::read()
{
    // One reading at a time, so that an older reading never arrives after a newer one.
    if (m_reading) {
        m_readAgain = true;
        return;
    }
    m_reading = true;
    auto promise = std::make_shared<QPromise<NetworkFacts>>();
    auto* watcher = new QFutureWatcher<NetworkFacts>(this);
    connect(watcher, &QFutureWatcher<NetworkFacts>::finished, this, [this, watcher] {
        report(watcher->result());
        watcher->deleteLater();
        m_reading = false;
        if (std::exchange(m_readAgain, false))
            read();
    });
    watcher->setFuture(promise->future());
    QThreadPool::globalInstance()->start([promise] {
        promise->start();
        promise->addResult(readNetworkFacts());
        promise->finish();
    });
}

void NetworkWatch::report(const NetworkFacts& facts)
{
    bool change = false;
    {
        const std::lock_guard guard(m_lock);
        if (facts.isUsable()) {
            change = m_seenUsable && joinsNetwork(m_facts, facts);
            m_seenUsable = true;
        }
        m_facts = facts;
    }
    if (change)
        emit changed();
}

NetworkFacts NetworkWatch::facts() const
{
    const std::lock_guard guard(m_lock);
    return m_facts;
}
