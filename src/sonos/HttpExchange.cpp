#include "sonos/HttpExchange.h"

#include "sonos/HttpConnections.h"

#include <QNetworkProxy>
#include <QSslSocket>

namespace {

// The socket hands over at most this much at a time, so a flood is refused within one slice
// beyond the cap and a busy peer never fills memory behind the parser's back.
constexpr qint64 kSlice = 64 * 1024;

using Kind = HttpExchange::Result::Kind;

HttpExchange::Result ended(Kind kind, QAbstractSocket::SocketError error = {}, QString text = {})
{
    HttpExchange::Result result;
    result.kind = kind;
    result.socketError = error;
    result.errorText = std::move(text);
    return result;
}

HttpExchange::Result answer(const HttpResponseParser& parser)
{
    HttpExchange::Result result = ended(Kind::answered);
    result.status = parser.status();
    result.body = parser.body();
    result.fields = parser.fields();
    return result;
}

} // namespace

QByteArray HttpExchange::Result::field(QByteArrayView name) const
{
    for (const auto& [fieldName, value] : fields)
        if (QByteArrayView(fieldName).compare(name, Qt::CaseInsensitive) == 0)
            return value;
    return {};
}

void HttpExchange::start(const QUrl& url, QByteArray request, Limits limits,
                         std::function<void(const Result&)> done)
{
    auto* exchange = new HttpExchange(url, std::move(request), limits, std::move(done));
    // An exchange still under way when its thread ends goes with the thread's connections.
    exchange->setParent(&HttpConnections::forThisThread());
    exchange->begin();
}

HttpExchange::HttpExchange(const QUrl& url, QByteArray request, Limits limits,
                           std::function<void(const Result&)> done)
    : m_url(url)
    , m_key(url.scheme() + QStringLiteral("://") + url.host() + u':' +
            QString::number(url.port(url.scheme() == QLatin1String("https") ? 443 : 80)))
    , m_request(std::move(request))
    , m_limits(limits)
    , m_done(std::move(done))
    , m_parser(limits.bodyCap)
{
    for (QTimer* timer : {&m_idle, &m_whole}) {
        timer->setSingleShot(true);
        connect(timer, &QTimer::timeout, this,
                [this] { finish(ended(Kind::timedOut, QAbstractSocket::SocketTimeoutError)); });
    }
}

void HttpExchange::begin()
{
    m_whole.start(m_limits.whole);
    m_idle.start(m_limits.idle);
    m_socket = HttpConnections::forThisThread().take(m_key);
    m_reused = m_socket != nullptr;
    if (!m_reused)
        return open();
    m_socket->setParent(this);
    attach();
    send();
}

void HttpExchange::open()
{
    const bool secure = m_url.scheme() == QLatin1String("https");
    m_socket = secure ? new QSslSocket(this) : new QTcpSocket(this);
    // Speakers are on the local network; a proxy in the environment must not be asked.
    m_socket->setProxy(QNetworkProxy::NoProxy);
    m_socket->setReadBufferSize(kSlice);
    attach();
    const quint16 port = static_cast<quint16>(m_url.port(secure ? 443 : 80));
    if (auto* ssl = qobject_cast<QSslSocket*>(m_socket)) {
        connect(ssl, &QSslSocket::encrypted, this, &HttpExchange::send);
        ssl->connectToHostEncrypted(m_url.host(), port);
    } else {
        connect(m_socket, &QTcpSocket::connected, this, &HttpExchange::send);
        m_socket->connectToHost(m_url.host(), port);
    }
}

void HttpExchange::attach()
{
    connect(m_socket, &QTcpSocket::readyRead, this, &HttpExchange::receive);
    connect(m_socket, &QTcpSocket::bytesWritten, this, [this] { m_idle.start(m_limits.idle); });
    connect(m_socket, &QTcpSocket::errorOccurred, this, &HttpExchange::failed);
    connect(m_socket, &QTcpSocket::disconnected, this, &HttpExchange::closedByPeer);
}

void HttpExchange::send()
{
    m_idle.start(m_limits.idle);
    m_socket->write(m_request);
}

void HttpExchange::receive()
{
    while (!m_finished && m_socket->bytesAvailable() > 0) {
        const QByteArray slice = m_socket->read(kSlice);
        if (slice.isEmpty())
            return;
        m_idle.start(m_limits.idle);
        m_parser.feed(slice);
        settleFromParser();
    }
}

void HttpExchange::settleFromParser()
{
    switch (m_parser.state()) {
    case HttpResponseParser::State::head:
    case HttpResponseParser::State::body:
        return;
    case HttpResponseParser::State::done:
        return finish(answer(m_parser), m_parser.connectionReusable());
    case HttpResponseParser::State::notHttp:
        return finish(ended(Kind::notHttp));
    case HttpResponseParser::State::headTooLarge:
        return finish(ended(Kind::headTooLarge));
    case HttpResponseParser::State::bodyTooLarge:
        return finish(ended(Kind::bodyTooLarge));
    case HttpResponseParser::State::badFraming:
        return finish(ended(Kind::badFraming));
    }
}

void HttpExchange::closedByPeer()
{
    if (m_finished)
        return;
    // What the socket still holds came before the close.
    receive();
    if (m_finished)
        return;
    if (m_parser.closed() != HttpResponseParser::State::body &&
        m_parser.state() != HttpResponseParser::State::head)
        return settleFromParser();
    failedWith(QAbstractSocket::RemoteHostClosedError);
}

void HttpExchange::failed(QAbstractSocket::SocketError error)
{
    if (m_finished)
        return;
    if (error == QAbstractSocket::RemoteHostClosedError)
        return closedByPeer();
    failedWith(error);
}

void HttpExchange::failedWith(QAbstractSocket::SocketError error)
{
    // A kept connection the player had already closed: the request never reached it.
    if (m_reused && !m_retried && !m_parser.sawBytes()) {
        m_retried = true;
        m_reused = false;
        m_socket->disconnect(this);
        m_socket->abort();
        m_socket->deleteLater();
        return open();
    }
    // Whatever came before the close was not an answer: a player that closes at once, or
    // mid-head, gave no HTTP answer at all.
    if (error == QAbstractSocket::RemoteHostClosedError &&
        m_parser.state() == HttpResponseParser::State::head)
        return finish(ended(Kind::notHttp));
    finish(ended(Kind::failed, error, m_socket->errorString()));
}

void HttpExchange::finish(Result result, bool keepConnection)
{
    if (m_finished)
        return;
    m_finished = true;
    m_idle.stop();
    m_whole.stop();
    if (m_socket) {
        m_socket->disconnect(this);
        if (keepConnection) {
            HttpConnections::forThisThread().park(m_key, m_socket);
        } else {
            // Ends the connection here and now, whatever the peer is still sending.
            m_socket->abort();
        }
        m_socket = nullptr;
    }
    m_done(result);
    deleteLater();
}
