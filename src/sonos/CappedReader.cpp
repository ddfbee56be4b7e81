#include "sonos/CappedReader.h"

#include "support/Log.h"

#include <QCoreApplication>
#include <QNetworkAccessManager>
#include <QNetworkProxy>
#include <QPointer>
#include <QPromise>
#include <QThread>
#include <QTimer>

#include <memory>

namespace CappedReader {

namespace {

// Reads are taken from the network layer in slices no larger than this, so that a flood of
// bytes is refused after at most one slice beyond the cap.
constexpr qint64 readBufferSize = 64 * 1024;
constexpr qsizetype reservedBytes = 8192;

// One client per thread, made on first use on that thread and owned by it: the main
// thread's by the application object, a worker's until that thread finishes.
QNetworkAccessManager* threadClient()
{
    thread_local QPointer<QNetworkAccessManager> client;
    if (client)
        return client;
    QCoreApplication* app = QCoreApplication::instance();
    const bool onMainThread = app && app->thread() == QThread::currentThread();
    client = new QNetworkAccessManager(onMainThread ? app : nullptr);
    if (!onMainThread) {
        QObject::connect(QThread::currentThread(), &QThread::finished, client,
                         &QObject::deleteLater);
    }
    // Speakers are on the local network; a proxy in the environment must not be asked.
    client->setProxy(QNetworkProxy::NoProxy);
    return client;
}

void configure(QNetworkRequest& request, const Timeouts& timeouts)
{
    request.setAttribute(QNetworkRequest::CacheLoadControlAttribute,
                         QNetworkRequest::AlwaysNetwork);
    request.setAttribute(QNetworkRequest::CacheSaveControlAttribute, false);
    request.setAttribute(QNetworkRequest::CookieLoadControlAttribute, QNetworkRequest::Manual);
    request.setAttribute(QNetworkRequest::CookieSaveControlAttribute, QNetworkRequest::Manual);
    request.setAttribute(QNetworkRequest::Http2AllowedAttribute, false);
    // A player never redirects; one that does is answering with a status like any other,
    // and is not followed to another host.
    request.setAttribute(QNetworkRequest::RedirectPolicyAttribute,
                         QNetworkRequest::ManualRedirectPolicy);
    request.setTransferTimeout(static_cast<int>(timeouts.request.count()));
}

// The network layer reports bytes that are not an HTTP answer the same way as a connection
// closed before any answer: either way the player gave no HTTP answer at all. A connection
// closed after the status line is a broken transfer instead.
bool isNotHttp(QNetworkReply::NetworkError error, const QVariant& status)
{
    if (error == QNetworkReply::ProtocolFailure || error == QNetworkReply::ProtocolUnknownError)
        return true;
    return error == QNetworkReply::RemoteHostClosedError && !status.isValid();
}

// Errors below 100 are the connection's own (refused, closed, host not found, time-out);
// the others that come with a status line only restate that status.
bool isConnectionError(QNetworkReply::NetworkError error)
{
    return error != QNetworkReply::NoError && error < QNetworkReply::ProxyConnectionRefusedError;
}

class Transfer {
public:
    Transfer(QNetworkReply* reply, const QNetworkRequest& request)
        : m_reply(reply)
        , m_host(request.url().host())
    {
        m_body.reserve(reservedBytes);
        m_promise.start();
    }

    QFuture<SonosResult<Response>> future() { return m_promise.future(); }

    void collect()
    {
        while (!m_settled && m_reply->bytesAvailable() > 0) {
            const QByteArray slice = m_reply->read(cap + 1 - m_body.size());
            if (slice.isEmpty())
                return;
            m_body.append(slice);
            if (m_body.size() > cap)
                refuse();
        }
    }

    void finish()
    {
        collect();
        if (!m_settled)
            settle(outcome());
        m_reply->deleteLater();
    }

    void expire()
    {
        if (m_settled)
            return;
        m_expired = true;
        m_reply->abort(); // finishes the reply, which settles as a time-out
    }

private:
    void refuse()
    {
        Log::info(QStringLiteral("response from %1 exceeded %2 bytes; refusing it")
                      .arg(m_host.isEmpty() ? QStringLiteral("?") : m_host)
                      .arg(cap));
        settle(SpeakerError{SonosError::badResponse()});
        m_reply->abort();
    }

    SonosResult<Response> outcome() const
    {
        const QNetworkReply::NetworkError error = m_reply->error();
        // Only the two time-outs cancel a transfer: the whole-resource timer above and the
        // network layer's own inactivity timer.
        if (m_expired || error == QNetworkReply::OperationCanceledError)
            return SpeakerError{TransportError{QNetworkReply::TimeoutError, timedOutText()}};
        const QVariant status = m_reply->attribute(QNetworkRequest::HttpStatusCodeAttribute);
        if (isNotHttp(error, status))
            return Response{};
        if (isConnectionError(error))
            return SpeakerError{TransportError{error, m_reply->errorString()}};
        if (status.isValid())
            return Response{status.toInt(), m_body};
        if (error == QNetworkReply::NoError)
            return Response{};
        return SpeakerError{TransportError{error, m_reply->errorString()}};
    }

    void settle(SonosResult<Response> result)
    {
        m_settled = true;
        m_promise.addResult(std::move(result));
        m_promise.finish();
    }

    QNetworkReply* m_reply;
    QString m_host;
    QByteArray m_body;
    QPromise<SonosResult<Response>> m_promise;
    bool m_settled = false;
    bool m_expired = false;
};

} // namespace

QString timedOutText()
{
    return QStringLiteral("The request timed out.");
}

QFuture<SonosResult<Response>> read(QNetworkRequest request, QByteArray body)
{
    return read(std::move(request), std::move(body), Timeouts{});
}

QFuture<SonosResult<Response>> read(QNetworkRequest request, QByteArray body, Timeouts timeouts)
{
    configure(request, timeouts);
    QNetworkAccessManager* client = threadClient();
    QNetworkReply* reply = body.isNull() ? client->get(request) : client->post(request, body);
    reply->setReadBufferSize(readBufferSize);

    // The transfer lives as long as the reply's connections, which go with the reply.
    auto transfer = std::make_shared<Transfer>(reply, request);
    QObject::connect(reply, &QIODevice::readyRead, reply, [transfer] { transfer->collect(); });
    QObject::connect(reply, &QNetworkReply::finished, reply, [transfer] { transfer->finish(); });
    auto* deadline = new QTimer(reply);
    deadline->setSingleShot(true);
    QObject::connect(deadline, &QTimer::timeout, reply, [transfer] { transfer->expire(); });
    deadline->start(timeouts.resource);
    return transfer->future();
}

} // namespace CappedReader
