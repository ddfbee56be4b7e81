#include "sonos/EventSubscription.h"

#include "sonos/EventListener.h"
#include "sonos/HttpExchange.h"
#include "sonos/Tags.h"
#include "support/Log.h"

#include <QPointer>
#include <QPromise>
#include <QUrl>

using namespace std::chrono_literals;

namespace {

constexpr HttpExchange::Limits limits{5000ms, 15000ms, 64 * 1024};

// "Second-1800" → 1800; nothing for "infinite" or anything that is not a number of seconds.
std::optional<int> grantedSeconds(const QByteArray& timeout)
{
    if (!timeout.toLower().startsWith("second-"))
        return std::nullopt;
    bool ok = false;
    const int seconds = timeout.mid(7).toInt(&ok);
    return ok && seconds > 0 ? std::optional(seconds) : std::nullopt;
}

} // namespace

EventSubscription::EventSubscription(SonosDevice player, QString eventPath,
                                     std::chrono::seconds requested, QObject* parent)
    : QObject(parent)
    , m_player(std::move(player))
    , m_path(std::move(eventPath))
    , m_requested(requested)
{
    m_renewal.setSingleShot(true);
    connect(&m_renewal, &QTimer::timeout, this, &EventSubscription::renew);
}

EventSubscription::~EventSubscription()
{
    stop();
}

void EventSubscription::start()
{
    stop();
    if (!m_listener)
        m_listener = EventListener::forPlayer(m_player.host);
    if (!m_listener) {
        // Nothing can listen for the player: the same as a player that cannot be reached.
        QTimer::singleShot(0, this, [this, attempt = m_attempt] {
            if (attempt == m_attempt)
                fail(QStringLiteral("no callback address"));
        });
        return;
    }
    subscribe();
}

QFuture<void> EventSubscription::stop()
{
    ++m_attempt;
    m_renewal.stop();
    QFuture<void> told = m_sid.isEmpty() ? QtFuture::makeReadyFuture() : unsubscribeFrom(m_sid);
    forget();
    return told;
}

void EventSubscription::forget()
{
    if (m_listener && !m_sid.isEmpty())
        m_listener->unroute(m_sid);
    if (m_listener && m_expecting)
        m_listener->unexpect(m_player.host);
    m_expecting = false;
    m_sid.clear();
}

QByteArray EventSubscription::request(const QByteArray& method, const QByteArray& fields) const
{
    return method + ' ' + m_path.toUtf8() + " HTTP/1.1\r\nHOST: " + m_player.host.toUtf8() +
           ":1400\r\nUSER-AGENT: Velotide\r\n" + fields + "Content-Length: 0\r\n\r\n";
}

void EventSubscription::subscribe()
{
    const quint64 attempt = ++m_attempt;
    m_listener->expect(m_player.host);
    m_expecting = true;
    const QByteArray fields = "CALLBACK: <" + m_listener->callbackUrl().toUtf8() +
                              ">\r\nNT: upnp:event\r\nTIMEOUT: Second-" +
                              QByteArray::number(qint64(m_requested.count())) + "\r\n";
    HttpExchange::start(
        QUrl(QStringLiteral("http://%1:1400%2").arg(m_player.host, m_path)),
        request("SUBSCRIBE", fields), limits,
        [self = QPointer(this), attempt](const HttpExchange::Result& result) {
            if (!self || attempt != self->m_attempt)
                return;
            const QString sid = QString::fromLatin1(result.field("SID"));
            const std::optional<int> seconds = grantedSeconds(result.field("TIMEOUT"));
            if (result.kind != HttpExchange::Result::Kind::answered || result.status != 200 ||
                sid.isEmpty() || !seconds)
                return self->fail(result.status > 0 ? QStringLiteral("status %1").arg(result.status)
                                                    : QStringLiteral("no answer"));
            self->subscribed(sid, *seconds);
        });
}

void EventSubscription::subscribed(const QString& sid, int seconds)
{
    m_sid = sid;
    m_nextSeq = 0;
    m_listener->route(sid, m_player.host, this, [this](const EventListener::Message& message) {
        receive(message.sid, message.seq, message.body);
    });
    m_listener->unexpect(m_player.host);
    m_expecting = false;
    // Renewed at half the granted time, so that a slow or lost renewal still has time to be
    // made again before the player lets the subscription lapse.
    m_renewal.start(std::chrono::milliseconds(std::max(1, seconds) * 500));
}

void EventSubscription::renew()
{
    if (m_sid.isEmpty())
        return;
    const quint64 attempt = m_attempt;
    const QByteArray fields = "SID: " + m_sid.toUtf8() + "\r\nTIMEOUT: Second-" +
                              QByteArray::number(qint64(m_requested.count())) + "\r\n";
    HttpExchange::start(
        QUrl(QStringLiteral("http://%1:1400%2").arg(m_player.host, m_path)),
        request("SUBSCRIBE", fields), limits,
        [self = QPointer(this), attempt](const HttpExchange::Result& result) {
            if (!self || attempt != self->m_attempt)
                return;
            const std::optional<int> seconds = grantedSeconds(result.field("TIMEOUT"));
            if (result.kind == HttpExchange::Result::Kind::answered && result.status == 200 &&
                seconds) {
                self->m_renewal.start(std::chrono::milliseconds(*seconds * 500));
                return;
            }
            // The player forgot the subscription (412) or cannot be reached: make a new one.
            Log::info(QStringLiteral("Event subscription %1%2 not renewed; subscribing again")
                          .arg(self->m_player.host, self->m_path));
            self->forget();
            self->subscribe();
        });
}

QFuture<void> EventSubscription::unsubscribeFrom(const QString& sid)
{
    auto told = std::make_shared<QPromise<void>>();
    told->start();
    HttpExchange::start(QUrl(QStringLiteral("http://%1:1400%2").arg(m_player.host, m_path)),
                        request("UNSUBSCRIBE", "SID: " + sid.toUtf8() + "\r\n"), limits,
                        [told](const HttpExchange::Result&) { told->finish(); });
    return told->future();
}

void EventSubscription::receive(const QString& sid, quint32 seq, const QByteArray& body)
{
    if (sid != m_sid)
        return;
    if (seq == m_nextSeq) {
        // SEQ runs to the largest 32-bit number, then starts again at 1.
        m_nextSeq = seq == 0xffffffffu ? 1 : seq + 1;
        emit notified(body);
        return;
    }
    if (seq < m_nextSeq)
        return; // a message already seen
    Log::info(QStringLiteral("Events from %1%2 skipped from %3 to %4; subscribing again")
                  .arg(m_player.host, m_path)
                  .arg(m_nextSeq)
                  .arg(seq));
    emit notified(body);
    start();
}

void EventSubscription::fail(const QString& why)
{
    Log::info(
        QStringLiteral("Event subscription to %1%2 failed: %3").arg(m_player.host, m_path, why));
    forget();
    emit failed();
}

QFuture<std::optional<QString>> firstEventProperty(const SonosDevice& player,
                                                   const QString& eventPath,
                                                   const QString& property,
                                                   std::chrono::milliseconds timeout)
{
    auto promise = std::make_shared<QPromise<std::optional<QString>>>();
    promise->start();
    QFuture<std::optional<QString>> future = promise->future();
    auto* subscription = new EventSubscription(player, eventPath, 60s);
    auto settle = [promise, subscription](std::optional<QString> text) {
        if (promise->future().isFinished())
            return;
        promise->addResult(std::move(text));
        promise->finish();
        subscription->stop();
        subscription->deleteLater();
    };
    QObject::connect(subscription, &EventSubscription::notified, subscription,
                     [settle, property, player, eventPath](const QByteArray& body) {
                         std::optional<QString> text =
                             Tags::element(property, QString::fromUtf8(body));
                         if (!text)
                             Log::info(QStringLiteral("Event from %1%2 carries no %3")
                                           .arg(player.host, eventPath, property));
                         settle(std::move(text));
                     });
    QObject::connect(subscription, &EventSubscription::failed, subscription,
                     [settle] { settle(std::nullopt); });
    QTimer::singleShot(timeout, subscription, [settle, player, eventPath] {
        Log::info(QStringLiteral("No event from %1%2 in time").arg(player.host, eventPath));
        settle(std::nullopt);
    });
    subscription->start();
    return future;
}
