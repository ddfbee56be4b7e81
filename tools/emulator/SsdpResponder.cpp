#include "SsdpResponder.h"

#include "DescriptionXml.h"

#include <QNetworkDatagram>
#include <QNetworkInterface>
#include <QRandomGenerator>
#include <QTimer>

namespace emulator {
namespace {

const QHostAddress ssdpGroup(QStringLiteral("239.255.255.250"));
constexpr quint16 ssdpPort = 1900;
const QString zonePlayerType = QStringLiteral("urn:schemas-upnp-org:device:ZonePlayer:1");

QByteArray headerValue(const QList<QByteArray>& lines, const QByteArray& name)
{
    for (const QByteArray& line : lines) {
        const qsizetype colon = line.indexOf(':');
        if (colon > 0 && line.left(colon).trimmed().compare(name, Qt::CaseInsensitive) == 0)
            return line.mid(colon + 1).trimmed();
    }
    return {};
}

} // namespace

QString answeredSearchTarget(const QByteArray& mSearch)
{
    QList<QByteArray> lines = mSearch.split('\n');
    for (QByteArray& line : lines)
        line = line.trimmed();
    if (lines.value(0) != "M-SEARCH * HTTP/1.1" || headerValue(lines, "MAN") != "\"ssdp:discover\"")
        return {};
    const QString st = QString::fromUtf8(headerValue(lines, "ST"));
    if (st == zonePlayerType || st == u"ssdp:all")
        return zonePlayerType;
    if (st == u"upnp:rootdevice")
        return st;
    return {};
}

QByteArray ssdpAnswerDatagram(const Player& p, const QString& householdId, quint16 port,
                              const QString& searchTarget)
{
    const QString usn = searchTarget.startsWith(u"uuid:")
                            ? searchTarget
                            : QStringLiteral("uuid:%1::%2").arg(p.uid, searchTarget);
    QByteArray d = "HTTP/1.1 200 OK\r\n"
                   "CACHE-CONTROL: max-age = 1800\r\n"
                   "EXT:\r\n";
    d += "LOCATION: http://" + p.host.toUtf8() + ':' + QByteArray::number(port) +
         "/xml/device_description.xml\r\n";
    d += "SERVER: " + serverHeader(p) + "\r\n";
    d += "ST: " + searchTarget.toUtf8() + "\r\n";
    d += "USN: " + usn.toUtf8() + "\r\n";
    d += "X-RINCON-HOUSEHOLD: " + householdId.toUtf8() + "\r\n";
    d += "X-RINCON-BOOTSEQ: " + QByteArray::number(p.bootSeq) + "\r\n";
    d += "BOOTID.UPNP.ORG: " + QByteArray::number(p.bootSeq) + "\r\n";
    d += "X-RINCON-WIFIMODE: 0\r\n"
         "X-RINCON-VARIANT: 2\r\n";
    d += "HOUSEHOLD.SMARTSPEAKER.AUDIO: " + householdId.toUtf8() + ".0\r\n\r\n";
    return d;
}

SsdpResponder::SsdpResponder(Answers answers, QObject* parent)
    : QObject(parent)
    , m_answers(std::move(answers))
{
    connect(&m_listener, &QUdpSocket::readyRead, this, &SsdpResponder::readSearches);
}

std::optional<QString> SsdpResponder::start(const QStringList& hosts)
{
    for (const QString& host : hosts)
        senderFor(host);
    if (!m_listener.bind(QHostAddress::AnyIPv4, ssdpPort,
                         QUdpSocket::ShareAddress | QUdpSocket::ReuseAddressHint))
        return QStringLiteral("cannot listen for SSDP on port %1 (%2)")
            .arg(ssdpPort)
            .arg(m_listener.errorString());
    // Searches on this machine travel over loopback; join there first.
    for (const QNetworkInterface& iface : QNetworkInterface::allInterfaces()) {
        if (iface.flags().testFlag(QNetworkInterface::IsLoopBack) &&
            m_listener.joinMulticastGroup(ssdpGroup, iface))
            return std::nullopt;
    }
    if (m_listener.joinMulticastGroup(ssdpGroup))
        return std::nullopt;
    const QString error =
        QStringLiteral("cannot join the SSDP multicast group (%1)").arg(m_listener.errorString());
    m_listener.close();
    return error;
}

void SsdpResponder::readSearches()
{
    while (m_listener.hasPendingDatagrams()) {
        const QNetworkDatagram datagram = m_listener.receiveDatagram(65535);
        const QString target = answeredSearchTarget(datagram.data());
        if (!target.isEmpty() && datagram.senderPort() > 0)
            answer(datagram.senderAddress(), quint16(datagram.senderPort()), target, {});
    }
}

// A search sent straight to one player's address is answered by that player alone.
void SsdpResponder::readUnicastSearches(QUdpSocket* socket, const QString& host)
{
    while (socket->hasPendingDatagrams()) {
        const QNetworkDatagram datagram = socket->receiveDatagram(65535);
        const QString target = answeredSearchTarget(datagram.data());
        if (!target.isEmpty() && datagram.senderPort() > 0)
            answer(datagram.senderAddress(), quint16(datagram.senderPort()), target, host);
    }
}

// Real players spread their answers over the search's MX window; a few tens of
// milliseconds keep tests quick while the answers still arrive out of step.
void SsdpResponder::answer(const QHostAddress& to, quint16 port, const QString& searchTarget,
                           const QString& onlyHost)
{
    for (const SsdpAnswer& a : m_answers(searchTarget)) {
        if (!onlyHost.isEmpty() && a.host != onlyHost)
            continue;
        QUdpSocket* sender = senderFor(a.host);
        if (!sender)
            continue;
        for (int copy = 0; copy < a.copies; ++copy) {
            const int delay = int(QRandomGenerator::global()->bounded(20)) + 10 * copy;
            QTimer::singleShot(delay, sender, [sender, to, port, bytes = a.datagram] {
                sender->writeDatagram(bytes, to, port);
            });
        }
    }
}

QUdpSocket* SsdpResponder::senderFor(const QString& host)
{
    if (auto found = m_senders.find(host); found != m_senders.end())
        return found->get();
    auto socket = std::make_shared<QUdpSocket>();
    // From port 1900 like a real player when the address allows it, else any port.
    if (!socket->bind(QHostAddress(host), ssdpPort,
                      QUdpSocket::ShareAddress | QUdpSocket::ReuseAddressHint) &&
        !socket->bind(QHostAddress(host), 0))
        return nullptr;
    connect(socket.get(), &QUdpSocket::readyRead, this,
            [this, raw = socket.get(), host] { readUnicastSearches(raw, host); });
    m_senders.insert(host, socket);
    return socket.get();
}

} // namespace emulator
