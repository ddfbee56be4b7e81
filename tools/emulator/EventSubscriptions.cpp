#include "EventSubscriptions.h"

#include <QRegularExpression>
#include <QTcpSocket>
#include <QTimer>

#include <algorithm>
#include <memory>

namespace emulator {

namespace {

using namespace std::chrono_literals;

// What a subscription lasts when the subscriber names no duration, and the longest a player
// grants.
constexpr int kDefaultSeconds = 1800;
constexpr int kLongestSeconds = 86400;
// A subscriber that neither answers nor refuses within this is taken to have failed.
constexpr auto kDeliveryTimeout = 5s;

// "Second-1800" → 1800; "infinite" and anything longer → the longest; absent → the default.
int grantedSeconds(const QByteArray& timeout)
{
    const QByteArray value = timeout.trimmed().toLower();
    if (value.isEmpty())
        return kDefaultSeconds;
    if (!value.startsWith("second-"))
        return kLongestSeconds;
    bool ok = false;
    const qint64 seconds = value.mid(7).toLongLong(&ok);
    if (!ok || seconds < 1)
        return kDefaultSeconds;
    return int(std::min<qint64>(seconds, kLongestSeconds));
}

// "<http://10.0.0.5:3400/notify><http://…>": every URL between angle brackets, in order.
QList<QUrl> callbackUrls(const QByteArray& header)
{
    QList<QUrl> urls;
    static const QRegularExpression bracketed(QStringLiteral("<([^>]*)>"));
    for (const auto& match : bracketed.globalMatch(QString::fromUtf8(header))) {
        const QUrl url(match.captured(1));
        if (url.isValid() && url.scheme() == QLatin1String("http") && !url.host().isEmpty())
            urls << url;
    }
    return urls;
}

HttpAnswer granted(const QString& sid, int seconds)
{
    HttpAnswer answer{200, {}, {}};
    answer.headers = {{"SID", sid.toUtf8()}, {"TIMEOUT", "Second-" + QByteArray::number(seconds)}};
    return answer;
}

QByteArray notifyRequest(const EventMessage& message, const QUrl& to)
{
    QByteArray path = to.toEncoded(QUrl::RemoveScheme | QUrl::RemoveAuthority);
    if (path.isEmpty())
        path = "/";
    return "NOTIFY " + path + " HTTP/1.1\r\nHOST: " + to.authority().toUtf8() +
           "\r\nCONTENT-TYPE: text/xml; charset=\"utf-8\"\r\nCONTENT-LENGTH: " +
           QByteArray::number(message.body.size()) +
           "\r\nNT: upnp:event\r\nNTS: upnp:propchange\r\nSID: " + message.sid.toUtf8() +
           "\r\nSEQ: " + QByteArray::number(message.seq) + "\r\nConnection: close\r\n\r\n" +
           message.body;
}

} // namespace

EventSubscriptions::EventSubscriptions(Body body, QObject* parent)
    : QObject(parent)
    , m_body(std::move(body))
{
}

HttpAnswer EventSubscriptions::answer(const Request& request, const QString& service,
                                      const QByteArray& uid)
{
    const bool hasSid = !request.header("SID").isEmpty();
    const bool opens = !request.header("CALLBACK").isEmpty() || !request.header("NT").isEmpty();
    // An SID together with a callback or NT is a request the architecture calls malformed.
    if (hasSid && opens)
        return HttpAnswer{400, {}, {}};
    if (request.method == "UNSUBSCRIBE")
        return unsubscribe(request);
    if (request.method != "SUBSCRIBE")
        return HttpAnswer{405, {}, {}};
    return hasSid ? renew(request) : subscribe(request, service, uid);
}

HttpAnswer EventSubscriptions::subscribe(const Request& request, const QString& service,
                                         const QByteArray& uid)
{
    const QList<QUrl> callbacks = callbackUrls(request.header("CALLBACK"));
    if (request.header("NT") != "upnp:event" || callbacks.isEmpty())
        return HttpAnswer{412, {}, {}};
    const int seconds = grantedSeconds(request.header("TIMEOUT"));
    Subscription subscription;
    subscription.sid = QStringLiteral("uuid:%1_sub%2")
                           .arg(QString::fromUtf8(uid))
                           .arg(++m_made, 10, 10, QLatin1Char('0'));
    subscription.host = request.host;
    subscription.service = service;
    subscription.callbacks = callbacks;
    subscription.expiry = QDeadlineTimer(std::chrono::seconds(seconds));
    m_subscriptions.append(subscription);
    // The initial event follows the answer, never comes before it.
    QTimer::singleShot(10ms, this, [this, sid = subscription.sid] {
        const auto it = std::find_if(m_subscriptions.begin(), m_subscriptions.end(),
                                     [&](const Subscription& s) { return s.sid == sid; });
        if (it == m_subscriptions.end())
            return;
        if (const std::optional<QByteArray> body = m_body(it->host, it->service))
            send(*it, *body);
    });
    return granted(subscription.sid, seconds);
}

HttpAnswer EventSubscriptions::renew(const Request& request)
{
    Subscription* subscription = find(request.header("SID"), request);
    if (!subscription)
        return HttpAnswer{412, {}, {}};
    const int seconds = grantedSeconds(request.header("TIMEOUT"));
    subscription->expiry = QDeadlineTimer(std::chrono::seconds(seconds));
    return granted(subscription->sid, seconds);
}

HttpAnswer EventSubscriptions::unsubscribe(const Request& request)
{
    Subscription* subscription = find(request.header("SID"), request);
    if (!subscription)
        return HttpAnswer{412, {}, {}};
    const QString sid = subscription->sid;
    m_subscriptions.removeIf([&](const Subscription& s) { return s.sid == sid; });
    return HttpAnswer{200, {}, {}};
}

// A live subscription of that SID at the player and event path the request reached.
EventSubscriptions::Subscription* EventSubscriptions::find(const QByteArray& sid,
                                                           const Request& request)
{
    for (Subscription& s : m_subscriptions)
        if (s.sid.toUtf8() == sid.trimmed() && s.host == request.host && !s.expiry.hasExpired())
            return &s;
    return nullptr;
}

void EventSubscriptions::publishChanges()
{
    m_subscriptions.removeIf([](const Subscription& s) { return s.expiry.hasExpired(); });
    for (Subscription& s : m_subscriptions) {
        // Until the initial event went, there is no change to tell.
        if (s.lastBody.isNull())
            continue;
        const std::optional<QByteArray> body = m_body(s.host, s.service);
        if (body && *body != s.lastBody)
            send(s, *body);
    }
}

void EventSubscriptions::forget(const QString& host)
{
    m_subscriptions.removeIf([&](const Subscription& s) { return s.host == host; });
}

void EventSubscriptions::record(const EventMessage& message)
{
    {
        std::lock_guard lock(m_mutex);
        m_delivered.append(message);
    }
    sendNext(message.sid);
}

QList<EventMessage> EventSubscriptions::delivered() const
{
    std::lock_guard lock(m_mutex);
    return m_delivered;
}

void EventSubscriptions::send(Subscription& subscription, QByteArray body)
{
    EventMessage message;
    message.host = subscription.host;
    message.service = subscription.service;
    message.sid = subscription.sid;
    message.seq = subscription.seq;
    message.body = body;
    subscription.lastBody = std::move(body);
    // SEQ runs to the largest 32-bit number and then starts again at 1, never at 0.
    subscription.seq = subscription.seq == 0xffffffffu ? 1 : subscription.seq + 1;
    // One message at a time per subscription, so that they arrive in the order of SEQ.
    const QString sid = message.sid;
    m_outbox[sid].append({std::move(message), subscription.callbacks});
    if (!m_sending.contains(sid))
        sendNext(sid);
}

void EventSubscriptions::sendNext(const QString& sid)
{
    auto box = m_outbox.find(sid);
    if (box == m_outbox.end() || box->isEmpty()) {
        m_outbox.remove(sid);
        m_sending.remove(sid);
        return;
    }
    m_sending.insert(sid);
    auto [message, callbacks] = box->takeFirst();
    deliver(std::move(message), std::move(callbacks));
}

// Tries each callback in turn until one takes the message; the outcome is recorded either
// way.
void EventSubscriptions::deliver(EventMessage message, QList<QUrl> callbacks)
{
    if (callbacks.isEmpty())
        return record(message);
    const QUrl to = callbacks.takeFirst();
    message.callback = to;
    auto* socket = new QTcpSocket(this);
    auto answer = std::make_shared<QByteArray>();
    auto done = std::make_shared<bool>(false);
    auto finish = [this, socket, answer, done, message, callbacks]() mutable {
        if (*done)
            return;
        *done = true;
        socket->disconnect(this);
        socket->abort();
        socket->deleteLater();
        message.accepted = answer->startsWith("HTTP/1.1 200") || answer->startsWith("HTTP/1.0 200");
        if (!message.accepted && !callbacks.isEmpty())
            return deliver(message, callbacks);
        record(message);
    };
    connect(socket, &QTcpSocket::connected, this,
            [socket, request = notifyRequest(message, to)] { socket->write(request); });
    connect(socket, &QTcpSocket::readyRead, this, [socket, answer, finish]() mutable {
        answer->append(socket->readAll());
        if (answer->contains("\r\n\r\n"))
            finish();
    });
    connect(socket, &QTcpSocket::errorOccurred, this, [finish]() mutable { finish(); });
    QTimer::singleShot(kDeliveryTimeout, socket, [finish]() mutable { finish(); });
    // A player sends from its own address, as the subscriber expects it to.
    socket->bind(QHostAddress(message.host));
    socket->connectToHost(to.host(), quint16(to.port(80)));
}

} // namespace emulator
