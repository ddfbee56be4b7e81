#pragma once

#include <QHostAddress>
#include <QNetworkDatagram>
#include <QNetworkInterface>
#include <QUdpSocket>

#include <memory>

// A test-side device on the SSDP group: it sees every M-SEARCH (alongside the emulator,
// which shares port 1900), remembers who sent it, and sends that searcher whatever
// datagrams a test wants, from whichever loopback address it names — a hostile or broken
// device as much as a real player.
class SsdpPeer {
public:
    bool listen()
    {
        if (!m_socket.bind(QHostAddress::AnyIPv4, 1900,
                           QUdpSocket::ShareAddress | QUdpSocket::ReuseAddressHint))
            return false;
        QObject::connect(&m_socket, &QUdpSocket::readyRead, &m_socket, [this] { read(); });
        return m_socket.joinMulticastGroup(QHostAddress(QStringLiteral("239.255.255.250")),
                                           loopback());
    }

    int searches() const { return m_searches; }
    QByteArray lastSearch() const { return m_lastSearch; }
    bool hasSearcher() const { return m_searcherPort != 0; }
    quint16 searcherPort() const { return m_searcherPort; }

    // Sends `payload` `count` times to the last searcher from `from` (any 127.x address),
    // reusing one socket while the address stays the same.
    bool send(const QString& from, const QByteArray& payload, int count = 1)
    {
        if (!m_flooder || m_flooderAddress != from) {
            m_flooder = std::make_unique<QUdpSocket>();
            m_flooderAddress = from;
            if (!m_flooder->bind(QHostAddress(from), 0))
                return false;
        }
        for (int i = 0; i < count; ++i)
            if (m_flooder->writeDatagram(payload, m_searcher, m_searcherPort) != payload.size())
                return false;
        return true;
    }

    static QNetworkInterface loopback()
    {
        for (const QNetworkInterface& interface : QNetworkInterface::allInterfaces())
            if (interface.flags().testFlag(QNetworkInterface::IsLoopBack))
                return interface;
        return {};
    }

    static QByteArray answer(const QString& host)
    {
        return "HTTP/1.1 200 OK\r\nCACHE-CONTROL: max-age = 1800\r\nEXT:\r\nLOCATION: http://" +
               host.toUtf8() +
               ":1400/xml/device_description.xml\r\nSERVER: Linux UPnP/1.0 Sonos/80.1-55240 "
               "(ZPS9)\r\nST: urn:schemas-upnp-org:device:ZonePlayer:1\r\nUSN: "
               "uuid:RINCON_000E58A0B1C201400::urn:schemas-upnp-org:device:ZonePlayer:1\r\n\r\n";
    }

private:
    void read()
    {
        while (m_socket.hasPendingDatagrams()) {
            const QNetworkDatagram datagram = m_socket.receiveDatagram();
            if (!datagram.data().startsWith("M-SEARCH"))
                continue;
            ++m_searches;
            m_lastSearch = datagram.data();
            m_searcher = datagram.senderAddress();
            m_searcherPort = quint16(datagram.senderPort());
        }
    }

    QUdpSocket m_socket;
    int m_searches = 0;
    QByteArray m_lastSearch;
    QHostAddress m_searcher;
    quint16 m_searcherPort = 0;
    std::unique_ptr<QUdpSocket> m_flooder;
    QString m_flooderAddress;
};
