#pragma once

#include "Household.h"

#include <QHash>
#include <QObject>
#include <QUdpSocket>

#include <functional>
#include <memory>
#include <optional>

namespace emulator {

// One player's answer to a search: the datagram, sent `copies` times from `host`.
struct SsdpAnswer {
    QString host;
    QByteArray datagram;
    int copies = 1;
};

// The search targets a zone player answers, and the ST it answers them with (empty when
// it stays quiet): its device type, "ssdp:all" and "upnp:rootdevice".
QString answeredSearchTarget(const QByteArray& mSearch);

// The unicast answer a zone player sends to an M-SEARCH.
QByteArray ssdpAnswerDatagram(const Player& player, const QString& householdId, quint16 port,
                              const QString& searchTarget);

// Listens for M-SEARCH on 239.255.255.250:1900 and answers each one from every player's
// own address, so a searcher sees one sender per player.
class SsdpResponder : public QObject {
    Q_OBJECT
public:
    using Answers = std::function<QList<SsdpAnswer>(const QString& searchTarget)>;

    explicit SsdpResponder(Answers answers, QObject* parent = nullptr);
    // Listens for searches to the group and, on each player's own address, for searches
    // sent to that player alone.
    std::optional<QString> start(const QStringList& hosts);

private:
    void readSearches();
    void readUnicastSearches(QUdpSocket* socket, const QString& host);
    void answer(const QHostAddress& to, quint16 port, const QString& searchTarget,
                const QString& onlyHost);
    QUdpSocket* senderFor(const QString& host);

    Answers m_answers;
    QUdpSocket m_listener;
    QHash<QString, std::shared_ptr<QUdpSocket>> m_senders;
};

} // namespace emulator
