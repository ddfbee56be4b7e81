#include "sonos/CappedReader.h"

#include "sonos/HttpExchange.h"
#include "support/Log.h"

#include <QPromise>
#include <QUrl>

#include <memory>

namespace CappedReader {

namespace {

QByteArray requestBytes(const QNetworkRequest& request, const QByteArray& body)
{
    const QUrl url = request.url();
    QByteArray target =
        url.toEncoded(QUrl::RemoveScheme | QUrl::RemoveAuthority | QUrl::RemoveFragment);
    if (target.isEmpty())
        target = "/";
    QByteArray bytes = (body.isNull() ? "GET " : "POST ") + target + " HTTP/1.1\r\n";
    bytes += "Host: " + url.authority(QUrl::RemoveUserInfo | QUrl::FullyEncoded).toUtf8() + "\r\n";
    bytes += "User-Agent: Velotide\r\n";
    for (const QByteArray& name : request.rawHeaderList())
        bytes += name + ": " + request.rawHeader(name) + "\r\n";
    if (!body.isNull())
        bytes += "Content-Length: " + QByteArray::number(body.size()) + "\r\n";
    return bytes + "\r\n" + body;
}

QNetworkReply::NetworkError networkError(QAbstractSocket::SocketError error)
{
    switch (error) {
    case QAbstractSocket::ConnectionRefusedError:
        return QNetworkReply::ConnectionRefusedError;
    case QAbstractSocket::RemoteHostClosedError:
        return QNetworkReply::RemoteHostClosedError;
    case QAbstractSocket::HostNotFoundError:
        return QNetworkReply::HostNotFoundError;
    case QAbstractSocket::SocketTimeoutError:
        return QNetworkReply::TimeoutError;
    case QAbstractSocket::SslHandshakeFailedError:
        return QNetworkReply::SslHandshakeFailedError;
    default:
        return QNetworkReply::UnknownNetworkError;
    }
}

void logRefusal(const QString& host, const char* what, qint64 limit)
{
    Log::info(QStringLiteral("%1 from %2 exceeded %3 bytes; refusing it")
                  .arg(QLatin1String(what), host.isEmpty() ? QStringLiteral("?") : host)
                  .arg(limit));
}

SonosResult<Response> outcome(const HttpExchange::Result& result, const QString& host)
{
    using Kind = HttpExchange::Result::Kind;
    switch (result.kind) {
    case Kind::answered:
        return Response{result.status, result.body};
    case Kind::notHttp:
        return Response{};
    case Kind::headTooLarge:
        logRefusal(host, "response header", HttpResponseParser::headCap);
        return SpeakerError{SonosError::badResponse()};
    case Kind::bodyTooLarge:
        logRefusal(host, "response", cap);
        return SpeakerError{SonosError::badResponse()};
    case Kind::badFraming:
        return SpeakerError{SonosError::badResponse()};
    case Kind::timedOut:
        return SpeakerError{TransportError{QNetworkReply::TimeoutError, timedOutText()}};
    case Kind::failed:
        return SpeakerError{TransportError{networkError(result.socketError), result.errorText}};
    }
    return Response{};
}

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
    auto promise = std::make_shared<QPromise<SonosResult<Response>>>();
    promise->start();
    QFuture<SonosResult<Response>> future = promise->future();
    const QUrl url = request.url();
    const QString scheme = url.scheme();
    if (!url.isValid() || url.host().isEmpty() ||
        (scheme != QLatin1String("http") && scheme != QLatin1String("https"))) {
        promise->addResult(SpeakerError{SonosError::badResponse()});
        promise->finish();
        return future;
    }
    HttpExchange::start(url, requestBytes(request, body),
                        {timeouts.request, timeouts.resource, cap},
                        [promise, host = url.host()](const HttpExchange::Result& result) {
                            promise->addResult(outcome(result, host));
                            promise->finish();
                        });
    return future;
}

} // namespace CappedReader
