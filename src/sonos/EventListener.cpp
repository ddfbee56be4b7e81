#include "sonos/EventListener.h"

#include "sonos/EventRequestParser.h"
#include "support/Log.h"

#include <QTcpSocket>
#include <QThreadStorage>
#include <QTimer>
#include <QUdpSocket>

#include <map>

namespace {

// Early messages held for subscriptions whose SID is not known yet: a few per player at
// most, so that a peer cannot fill memory with them.
constexpr qsizetype heldCap = 16;

QByteArray statusLine(int status)
{
    switch (status) {
    case 200:
        return "200 OK";
    case 400:
        return "400 Bad Request";
    case 412:
        return "412 Precondition Failed";
    case 413:
        return "413 Content Too Large";
    default:
        return QByteArray::number(status) + " Error";
    }
}

void logRefusal(const QHostAddress& peer, const QString& why)
{
    Log::info(QStringLiteral("Event from %1 refused: %2").arg(peer.toString(), why));
}

// Whether the body ends a property set: "</e:propertyset>", whatever the prefix. A body cut
// short or of another kind is no event message.
bool endsPropertySet(const QByteArray& body)
{
    const QByteArray trimmed = body.trimmed();
    const qsizetype close = trimmed.lastIndexOf("</");
    if (close < 0 || !trimmed.endsWith("propertyset>"))
        return false;
    const QByteArray prefix = trimmed.mid(close + 2, trimmed.size() - close - 2 - 12);
    return prefix.isEmpty() || (prefix.endsWith(':') && !prefix.contains('>'));
}

bool samePeer(const QHostAddress& peer, const QString& host)
{
    return peer.isEqual(QHostAddress(host), QHostAddress::ConvertV4MappedToIPv4);
}

// The local address a datagram to the player would leave from: connecting a UDP socket only
// picks the route, without sending anything or waiting.
QHostAddress interfaceTowards(const QString& playerHost)
{
    const QHostAddress player(playerHost);
    if (player.isNull())
        return {};
    QUdpSocket probe;
    probe.connectToHost(player, 1400);
    return probe.localAddress();
}

using Registry = std::map<QString, std::weak_ptr<EventListener>>;
QThreadStorage<Registry*> registries;

} // namespace

std::shared_ptr<EventListener> EventListener::forPlayer(const QString& playerHost)
{
    const QHostAddress address = interfaceTowards(playerHost);
    if (address.isNull())
        return nullptr;
    if (!registries.hasLocalData())
        registries.setLocalData(new Registry);
    std::weak_ptr<EventListener>& slot = (*registries.localData())[address.toString()];
    if (std::shared_ptr<EventListener> alive = slot.lock())
        return alive;
    auto listener = std::make_shared<EventListener>(address);
    if (!listener->isListening())
        return nullptr;
    slot = listener;
    return listener;
}

EventListener::EventListener(const QHostAddress& address)
{
    if (!m_server.listen(address))
        Log::info(QStringLiteral("Cannot listen for speaker events on %1: %2")
                      .arg(address.toString(), m_server.errorString()));
    connect(&m_server, &QTcpServer::newConnection, this, &EventListener::accept);
}

EventListener::~EventListener() = default;

QString EventListener::callbackUrl() const
{
    return QStringLiteral("http://%1:%2/events")
        .arg(m_server.serverAddress().toString())
        .arg(m_server.serverPort());
}

void EventListener::expect(const QString& playerHost)
{
    ++m_expected[playerHost];
}

void EventListener::unexpect(const QString& playerHost)
{
    auto count = m_expected.find(playerHost);
    if (count == m_expected.end() || --*count > 0)
        return;
    m_expected.erase(count);
    m_held.removeIf([&](const Held& held) {
        if (held.host != playerHost)
            return false;
        Log::info(QStringLiteral("Event from %1 dropped: unknown subscription %2")
                      .arg(held.host, held.message.sid));
        return true;
    });
}

void EventListener::route(const QString& sid, const QString& playerHost, QObject* context,
                          Receiver receiver)
{
    const Route& added = *m_routes.insert(sid, Route{playerHost, context, std::move(receiver)});
    QList<Message> early;
    m_held.removeIf([&](const Held& held) {
        if (held.message.sid != sid || held.host != playerHost)
            return false;
        early.append(held.message);
        return true;
    });
    for (const Message& message : early)
        deliver(added, message);
}

void EventListener::unroute(const QString& sid)
{
    m_routes.remove(sid);
}

void EventListener::accept()
{
    while (QTcpSocket* socket = m_server.nextPendingConnection()) {
        auto parser = std::make_shared<EventRequestParser>(bodyCap);
        // A request that is not whole in time, however slowly it trickles, is given up.
        auto* whole = new QTimer(socket);
        whole->setSingleShot(true);
        connect(whole, &QTimer::timeout, socket, [socket] {
            logRefusal(socket->peerAddress(), QStringLiteral("not complete in time"));
            socket->abort();
            socket->deleteLater();
        });
        whole->start(wholeRequestMs);
        connect(socket, &QTcpSocket::disconnected, socket, &QObject::deleteLater);
        connect(socket, &QTcpSocket::readyRead, this, [this, socket, parser, whole] {
            using State = EventRequestParser::State;
            if (parser->state() != State::head && parser->state() != State::body) {
                socket->readAll();
                return;
            }
            const State state = parser->feed(socket->readAll());
            int status = 0;
            switch (state) {
            case State::head:
            case State::body:
                return;
            case State::done:
                status = take(*parser, socket->peerAddress());
                break;
            case State::badRequest:
                logRefusal(socket->peerAddress(), QStringLiteral("not a request"));
                status = 400;
                break;
            case State::headTooLarge:
                logRefusal(socket->peerAddress(),
                           QStringLiteral("header over %1 bytes").arg(EventRequestParser::headCap));
                status = 400;
                break;
            case State::bodyTooLarge:
                logRefusal(socket->peerAddress(),
                           QStringLiteral("body over %1 bytes").arg(bodyCap));
                status = 413;
                break;
            }
            whole->stop();
            socket->write("HTTP/1.1 " + statusLine(status) +
                          "\r\nContent-Length: 0\r\nConnection: close\r\n\r\n");
            socket->disconnectFromHost();
        });
    }
}

int EventListener::take(const EventRequestParser& request, const QHostAddress& peer)
{
    // The checks and their answers follow the device architecture's eventing: a message
    // without NT or NTS is malformed (400); a wrong NT or NTS, or an SID nobody subscribed
    // with, fails its precondition (412).
    if (request.method() != "NOTIFY") {
        logRefusal(peer, QStringLiteral("method %1").arg(QString::fromLatin1(request.method())));
        return 400;
    }
    if (!request.hasField("NT") || !request.hasField("NTS")) {
        logRefusal(peer, QStringLiteral("no NT or NTS"));
        return 400;
    }
    bool seqOk = false;
    const quint32 seq = request.field("SEQ").toUInt(&seqOk);
    if (!seqOk) {
        logRefusal(peer, QStringLiteral("no sequence number"));
        return 400;
    }
    const QString sid = QString::fromLatin1(request.field("SID"));
    if (request.field("NT") != "upnp:event" || request.field("NTS") != "upnp:propchange" ||
        sid.isEmpty()) {
        logRefusal(peer, QStringLiteral("not a property change"));
        return 412;
    }
    if (!endsPropertySet(request.body())) {
        logRefusal(peer, QStringLiteral("no property set in the body"));
        return 400;
    }
    const Message message{sid, seq, request.body()};
    if (const auto found = m_routes.constFind(sid); found != m_routes.cend()) {
        if (!samePeer(peer, found->host)) {
            logRefusal(peer, QStringLiteral("not from the subscribed player"));
            return 412;
        }
        deliver(*found, message);
        return 200;
    }
    for (auto expected = m_expected.cbegin(); expected != m_expected.cend(); ++expected) {
        if (!samePeer(peer, expected.key()) || m_held.size() >= heldCap)
            continue;
        m_held.append({expected.key(), message});
        return 200;
    }
    logRefusal(peer, QStringLiteral("unknown subscription %1").arg(sid));
    return 412;
}

void EventListener::deliver(const Route& route, const Message& message)
{
    // The receiver runs from the event loop, never inside the listener's own bookkeeping,
    // and not at all once its owner is gone.
    QTimer::singleShot(0, this, [context = route.context, receiver = route.receiver, message] {
        if (context)
            receiver(message);
    });
}
