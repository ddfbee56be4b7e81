#include "discovery/SsdpSearch.h"

#include "support/Log.h"

#include <QPromise>
#include <QStringDecoder>
#include <QTimer>
#include <QUdpSocket>

#include <algorithm>
#include <memory>

namespace {

constexpr QByteArrayView zonePlayerType = "urn:schemas-upnp-org:device:ZonePlayer:1";
// Multicast over Wi-Fi is sent without acknowledgement and is lost now and then; one lost
// search must not make a whole sweep come back empty, so it goes out a few times.
constexpr int kRounds = 3;
constexpr std::chrono::milliseconds kRoundGap{100};

bool hasIPv4(const QNetworkInterface& interface)
{
    const auto entries = interface.addressEntries();
    return std::any_of(entries.begin(), entries.end(), [](const QNetworkAddressEntry& entry) {
        return entry.ip().protocol() == QAbstractSocket::IPv4Protocol;
    });
}

bool isValidUtf8(QByteArrayView bytes)
{
    QStringDecoder decoder(QStringDecoder::Utf8, QStringDecoder::Flag::Stateless);
    const QString text = decoder(bytes);
    return !decoder.hasError();
}

// The state of one running search. It lives until the window closes: the window's timer
// holds the only strong reference. Reads, the timer and the end all happen on the thread
// that started the search, so the host set needs no lock.
class Search {
public:
    explicit Search(std::chrono::milliseconds window)
        : m_window(window)
    {
    }

    QFuture<SsdpSearch::Result> start(const std::shared_ptr<Search>& self);

private:
    bool sendProbe();
    void readPending();
    void take(QByteArrayView datagram, const QHostAddress& sender);
    void finish();

    std::chrono::milliseconds m_window;
    QUdpSocket m_socket;
    QByteArray m_buffer;
    SsdpSearch::Result m_result;
    QPromise<SsdpSearch::Result> m_promise;
};

QFuture<SsdpSearch::Result> Search::start(const std::shared_ptr<Search>& self)
{
    m_promise.start();
    QFuture<SsdpSearch::Result> future = m_promise.future();
    // An ephemeral port, not 1900: the players answer the sender's port by unicast, so two
    // searches on one machine (the app and a probe) each get their own answers.
    if (!m_socket.bind(QHostAddress::AnyIPv4, 0) || !sendProbe()) {
        Log::info(QStringLiteral("could not join the SSDP multicast group"));
        finish();
        return future;
    }
    m_result.joined = true;
    m_buffer.resize(SsdpSearch::maxDatagram + 1);
    m_result.counters.bufferBytes = m_buffer.size();
    QObject::connect(&m_socket, &QUdpSocket::readyRead, &m_socket, [this] { readPending(); });
    // The socket is the context: a round due after the window closed is never sent.
    for (int round = 1; round < kRounds; ++round)
        QTimer::singleShot(kRoundGap * round, &m_socket, [this] { sendProbe(); });
    QTimer::singleShot(m_window, [self] { self->finish(); });
    return future;
}

// One round: sets the outgoing interface before each send: a machine with Wi-Fi, a wired link, a
// VPN and container bridges has its speakers behind any one of them.
bool Search::sendProbe()
{
    const QByteArray probe = SsdpSearch::probe();
    for (const QNetworkInterface& interface : SsdpSearch::searchInterfaces()) {
        m_socket.setMulticastInterface(interface);
        if (m_socket.writeDatagram(probe, SsdpSearch::groupAddress(), SsdpSearch::groupPort) ==
            probe.size())
            ++m_result.counters.probesSent;
    }
    return m_result.counters.probesSent > 0;
}

void Search::readPending()
{
    while (m_socket.hasPendingDatagrams()) {
        QHostAddress sender;
        const qint64 size = m_socket.pendingDatagramSize();
        const qint64 read = m_socket.readDatagram(m_buffer.data(), m_buffer.size(), &sender);
        if (read < 0)
            return;
        ++m_result.counters.datagrams;
        if (size > SsdpSearch::maxDatagram || read > SsdpSearch::maxDatagram) {
            ++m_result.counters.ignored;
            continue;
        }
        m_result.counters.largestRead = std::max(m_result.counters.largestRead, read);
        take(QByteArrayView(m_buffer.constData(), read), sender);
    }
}

void Search::take(QByteArrayView datagram, const QHostAddress& sender)
{
    if (!SsdpSearch::isZonePlayerAnswer(datagram) || sender.isNull()) {
        ++m_result.counters.ignored;
        return;
    }
    const QString host = SsdpSearch::hostText(sender.toString());
    if (m_result.hosts.contains(host))
        return;
    if (m_result.hosts.size() >= SsdpSearch::maxHosts) {
        ++m_result.counters.hostsRefused;
        return;
    }
    m_result.hosts.insert(host);
    if (const QString household = SsdpSearch::householdOf(datagram); !household.isEmpty())
        m_result.households.insert(host, household);
}

void Search::finish()
{
    m_socket.close();
    m_buffer = QByteArray();
    m_promise.addResult(m_result);
    m_promise.finish();
}

} // namespace

QFuture<SsdpSearch::Result> SsdpSearch::run(std::chrono::milliseconds window)
{
    auto search = std::make_shared<Search>(window);
    return search->start(search);
}

QByteArray SsdpSearch::probe()
{
    return QByteArrayLiteral("M-SEARCH * HTTP/1.1\r\nHOST: ") + "239.255.255.250" + ":" + "1900" +
           "\r\nMAN: \"ssdp:discover\"\r\nMX: 1\r\nST: " + zonePlayerType.toByteArray() +
           "\r\n\r\n";
}

QHostAddress SsdpSearch::groupAddress()
{
    return QHostAddress(QStringLiteral("239.255.255.250"));
}

QList<QNetworkInterface> SsdpSearch::searchInterfaces()
{
    QList<QNetworkInterface> outside;
    QList<QNetworkInterface> loopback;
    for (const QNetworkInterface& interface : QNetworkInterface::allInterfaces()) {
        const auto flags = interface.flags();
        if (!flags.testFlag(QNetworkInterface::IsUp) ||
            !flags.testFlag(QNetworkInterface::CanMulticast) || !hasIPv4(interface))
            continue;
        (flags.testFlag(QNetworkInterface::IsLoopBack) ? loopback : outside).append(interface);
    }
    return outside.isEmpty() ? loopback : outside;
}

bool SsdpSearch::isZonePlayerAnswer(QByteArrayView datagram)
{
    if (datagram.isEmpty())
        return false;
    const QByteArray bytes = QByteArray::fromRawData(datagram.data(), datagram.size());
    if (!bytes.contains("Sonos") && !bytes.contains(zonePlayerType))
        return false;
    return isValidUtf8(datagram);
}

QString SsdpSearch::householdOf(QByteArrayView datagram)
{
    static constexpr QByteArrayView name = "\r\nX-RINCON-HOUSEHOLD:";
    const QByteArray bytes = QByteArray::fromRawData(datagram.data(), datagram.size());
    const qsizetype at = bytes.toUpper().indexOf(name); // header names ignore letter case
    if (at < 0)
        return {};
    const qsizetype start = at + name.size();
    const qsizetype end = bytes.indexOf("\r\n", start);
    const QByteArray value = bytes.mid(start, end < 0 ? -1 : end - start).trimmed();
    // An identifier, never a sentence: anything longer or stranger is not one.
    if (value.size() > 64 ||
        std::any_of(value.begin(), value.end(), [](char c) { return c <= ' ' || c > '~'; }))
        return {};
    return QString::fromLatin1(value);
}

QString SsdpSearch::hostText(const QString& address)
{
    const qsizetype scope = address.indexOf(u'%');
    return scope < 0 ? address : address.left(scope);
}
