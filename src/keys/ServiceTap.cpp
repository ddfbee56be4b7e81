#include "keys/ServiceTap.h"

#include "keys/TapTexts.h"
#include "support/Log.h"

#include <QFile>

#include <unistd.h>

ServiceTap::ServiceTap(Callbacks callbacks, QString socketPath)
    : EventTap(std::move(callbacks))
    , m_path(std::move(socketPath))
{
}

ServiceTap::~ServiceTap() = default;

QString ServiceTap::defaultPath()
{
    return QString::fromLatin1(keyd::kDefaultSocketPath);
}

bool ServiceTap::isReachable(const QString& path)
{
    // Connecting to a Unix socket needs write permission on it.
    return ::access(QFile::encodeName(path).constData(), R_OK | W_OK) == 0;
}

void ServiceTap::DeleteLater::operator()(QLocalSocket* socket) const
{
    // The socket may be the sender of the signal being handled: silence it, close it (the
    // service disarms at once), and let the event loop delete it.
    QObject::disconnect(socket, nullptr, nullptr, nullptr);
    socket->abort();
    socket->deleteLater();
}

bool ServiceTap::install()
{
    if (!connectSocket()) {
        dropSocket();
        reportHealth();
        return false;
    }
    reportHealth();
    return true;
}

void ServiceTap::teardown()
{
    dropSocket();
    reportHealth();
}

// While the service refuses this session, each pass asks again, so that trust returns when
// the session becomes the active one.
void ServiceTap::check()
{
    m_reconnectedSinceCheck = false;
    EventTap::check();
    if (!m_socket && m_refusal != Refusal::none && m_refusal != Refusal::busy) {
        if (!connectSocket())
            dropSocket();
    }
}

void ServiceTap::reevaluate()
{
    if (!m_accepted)
        return;
    const bool armed = askArmed();
    if (armed == m_sentArmed)
        return;
    m_sentArmed = armed;
    send(keyd::encode(keyd::SetArmed{armed}));
}

bool ServiceTap::setPointerButtonHandler(std::function<void()> onPress)
{
    m_onPointerButton = std::move(onPress);
    if (m_accepted)
        send(keyd::encode(keyd::SetPointerButtons{bool(m_onPointerButton)}));
    return true;
}

bool ServiceTap::isTrusted() const
{
    if (m_refusal == Refusal::notActiveSession || m_refusal == Refusal::otherVersion)
        return false;
    return isReachable(m_path);
}

bool ServiceTap::isEnabled() const
{
    return isAlive() && m_accepted && m_devicesGrabbed > 0;
}

bool ServiceTap::isAlive() const
{
    return m_socket && m_socket->state() != QLocalSocket::UnconnectedState;
}

bool ServiceTap::reenable()
{
    return connectSocket();
}

// Starts a fresh connection in place of any earlier one. A local socket connects at once or
// fails at once; the service's hello arrives later through the event loop.
bool ServiceTap::connectSocket()
{
    m_socket.reset(new QLocalSocket);
    m_buffer = keyd::RecordBuffer();
    m_accepted = false;
    m_devicesGrabbed = 0;
    m_sentArmed = false; // the service starts every client disarmed
    m_announced = false;

    QLocalSocket* socket = m_socket.get();
    socket->connectToServer(m_path, QIODevice::ReadWrite);
    if (socket->state() == QLocalSocket::UnconnectedState)
        return false;
    QObject::connect(socket, &QLocalSocket::readyRead, socket, [this] { readRecords(); });
    QObject::connect(socket, &QLocalSocket::stateChanged, socket, [this](auto state) {
        if (state == QLocalSocket::UnconnectedState)
            connectionLost();
    });
    return true;
}

void ServiceTap::dropSocket()
{
    m_socket.reset();
    m_accepted = false;
    m_devicesGrabbed = 0;
    m_sentArmed = false;
}

void ServiceTap::readRecords()
{
    QLocalSocket* socket = m_socket.get();
    const QByteArray bytes = socket->readAll();
    m_buffer.append(std::span(reinterpret_cast<const std::uint8_t*>(bytes.constData()),
                              std::size_t(bytes.size())));
    while (m_socket.get() == socket) {
        const std::optional<keyd::Record> record = m_buffer.take();
        if (!record)
            break;
        // Records of an unknown type, or with impossible fields, are skipped.
        if (const auto message = keyd::decodeServiceMessage(*record))
            handle(*message);
    }
}

// The service went away (stopped, restarted, or dropped a client that stopped reading). The
// tap stays as a disabled one. One immediate reconnect per watchdog pass covers a quick
// restart of a service that had accepted us; the watchdog covers the rest, so a service
// that keeps failing is not hammered.
void ServiceTap::connectionLost()
{
    QLocalSocket* socket = m_socket.get();
    if (socket->bytesAvailable() > 0)
        readRecords(); // a parting word, such as a refusal, ends the story itself
    if (m_socket.get() != socket)
        return;
    const bool wasAccepted = m_accepted;
    m_accepted = false;
    m_devicesGrabbed = 0;
    m_sentArmed = false;
    reportHealth();
    if (!wasAccepted || m_reconnectedSinceCheck)
        return;
    m_reconnectedSinceCheck = true;
    QMetaObject::invokeMethod(
        &m_context,
        [this] {
            if (!m_socket || isAlive())
                return;
            if (reenable())
                Log::info(TapTexts::reconnectedAfterDrop());
            reportHealth();
        },
        Qt::QueuedConnection);
}

void ServiceTap::handle(const keyd::ServiceMessage& message)
{
    if (const auto* hello = std::get_if<keyd::Hello>(&message)) {
        handleHello(*hello);
        return;
    }
    if (!m_accepted)
        return; // nothing counts before the service has accepted us
    if (const auto* health = std::get_if<keyd::Health>(&message)) {
        handleHealth(*health);
    } else if (const auto* report = std::get_if<keyd::KeyReport>(&message)) {
        // The service swallowed this key on the strength of our last armed word: report it
        // even if the word is changing right now, or the press would be lost altogether.
        if (const auto key = mediaKeyFromRaw(int(report->key)))
            reportKey(*key, report->fine, report->isRepeat);
    } else if (std::holds_alternative<keyd::PointerButton>(message)) {
        if (m_onPointerButton)
            m_onPointerButton();
    }
}

void ServiceTap::handleHello(const keyd::Hello& hello)
{
    if (hello.version != keyd::kProtocolVersion) {
        refuse(Refusal::otherVersion,
               TapTexts::serviceVersion(hello.version, keyd::kProtocolVersion));
        return;
    }
    switch (hello.status) {
    case keyd::HelloStatus::accepted:
        m_accepted = true;
        m_refusal = Refusal::none;
        if (m_onPointerButton)
            send(keyd::encode(keyd::SetPointerButtons{true}));
        reportHealth();
        reevaluate();
        return;
    case keyd::HelloStatus::notActiveSession:
        refuse(Refusal::notActiveSession,
               TapTexts::serviceRefused(QStringLiteral("not the active session")));
        return;
    case keyd::HelloStatus::busy:
        refuse(Refusal::busy,
               TapTexts::serviceRefused(QStringLiteral("another client is connected")));
        return;
    }
}

void ServiceTap::handleHealth(const keyd::Health& health)
{
    m_devicesGrabbed = health.devicesGrabbed;
    if (isEnabled() && !m_announced) {
        m_announced = true;
        Log::info(TapTexts::installed());
    }
    reportHealth();
    reevaluate();
}

// A refusal ends this connection; the tap is gone until the watchdog asks again. The line is
// logged when the reason changes, not on every retry.
void ServiceTap::refuse(Refusal refusal, const QString& logLine)
{
    if (m_refusal != refusal)
        Log::info(logLine);
    m_refusal = refusal;
    dropSocket();
    reportHealth();
}

void ServiceTap::send(const keyd::Record& record)
{
    if (!isAlive())
        return;
    m_socket->write(reinterpret_cast<const char*>(record.data()), qint64(record.size()));
    m_socket->flush();
}
