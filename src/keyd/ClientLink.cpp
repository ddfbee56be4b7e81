#include "keyd/ClientLink.h"

#include "keyd/ActiveSession.h"
#include "keyd/Log.h"

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

namespace keyd {

namespace {

// Room for the one real client to get in while others crowd the queue.
constexpr int kBacklog = 16;
constexpr int kAcceptsPerRound = 4;
constexpr auto kAcceptRest = std::chrono::milliseconds(100);
constexpr int kReadsPerRound = 8; // of 256 bytes: 64 records

} // namespace

ClientLink::~ClientLink()
{
    if (m_clientFd >= 0)
        close(m_clientFd);
    if (m_listenFd >= 0) {
        close(m_listenFd);
        unlink(m_path.c_str());
    }
    if (m_lockFd >= 0)
        close(m_lockFd);
}

Expected<std::unique_ptr<ClientLink>, LinkError> ClientLink::listen(const std::string& path,
                                                                    const std::string& seatFile)
{
    std::unique_ptr<ClientLink> link(new ClientLink);
    link->m_path = path;
    link->m_seatFile = seatFile;
    // The socket is bound under a name of its own and renamed into place once it listens,
    // so that a client that finds the file can always connect.
    const std::string binding = path + ".new";
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    if (binding.size() >= sizeof address.sun_path)
        return LinkError{"socket path too long: " + path};
    std::memcpy(address.sun_path, binding.c_str(), binding.size() + 1);

    // Whoever holds the lock owns the socket: a second service must neither take over nor
    // delete the first one's. The kernel releases the lock when its holder ends, however.
    const std::string lockPath = path + ".lock";
    link->m_lockFd = open(lockPath.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600);
    if (link->m_lockFd < 0)
        return LinkError{"cannot open " + lockPath + ": " + std::strerror(errno)};
    if (flock(link->m_lockFd, LOCK_EX | LOCK_NB) < 0) {
        if (errno == EWOULDBLOCK)
            return LinkError{"another instance is already running on " + path};
        return LinkError{"cannot lock " + lockPath + ": " + std::strerror(errno)};
    }

    link->m_listenFd = socket(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
    if (link->m_listenFd < 0)
        return LinkError{std::string("cannot make a socket: ") + std::strerror(errno)};
    unlink(binding.c_str());
    const bool bound =
        bind(link->m_listenFd, reinterpret_cast<sockaddr*>(&address), sizeof address) == 0;
    if (bound)
        chmod(binding.c_str(), 0666);
    if (!bound || ::listen(link->m_listenFd, kBacklog) < 0 ||
        rename(binding.c_str(), path.c_str()) < 0) {
        int error = errno;
        close(link->m_listenFd);
        link->m_listenFd = -1;
        unlink(binding.c_str());
        return LinkError{"cannot listen on " + path + ": " + std::strerror(error)};
    }
    return link;
}

void ClientLink::acceptClient()
{
    // The seat file is read once per round, not once per connection.
    std::optional<std::optional<uid_t>> active;
    m_acceptResumesAt.reset();
    for (int i = 0;; ++i) {
        if (i == kAcceptsPerRound) {
            m_acceptResumesAt = std::chrono::steady_clock::now() + kAcceptRest;
            return;
        }
        int fd = accept4(m_listenFd, nullptr, nullptr, SOCK_NONBLOCK | SOCK_CLOEXEC);
        if (fd < 0)
            return;
        ucred peer{};
        socklen_t size = sizeof peer;
        if (getsockopt(fd, SOL_SOCKET, SO_PEERCRED, &peer, &size) < 0) {
            close(fd);
            continue;
        }
        if (!active)
            active = readActiveUid(m_seatFile);
        const auto current = m_clientFd >= 0 ? std::optional<uid_t>(m_clientUid) : std::nullopt;
        const HelloStatus status = admissionOf(peer.uid, current, *active);
        if (status != HelloStatus::accepted) {
            sendTo(fd, Hello{kProtocolVersion, status});
            close(fd);
            if (const auto line = m_refusals.refused(peer.uid, status, RefusalLog::Clock::now()))
                logLine(*line);
            continue;
        }
        if (m_clientFd >= 0)
            dropClient("dropped — its user left the foreground and a new client came");
        m_clientFd = fd;
        m_clientUid = peer.uid;
        m_armed = false;
        m_wantsButtons = false;
        m_buffer = RecordBuffer{};
        logLine("client of uid " + std::to_string(peer.uid) + " connected");
        if (sendTo(fd, Hello{}))
            sendTo(fd, Health{m_health});
    }
}

void ClientLink::receive()
{
    std::uint8_t bytes[256];
    for (int i = 0; i < kReadsPerRound; ++i) {
        if (m_clientFd < 0)
            return;
        ssize_t n = recv(m_clientFd, bytes, sizeof bytes, 0);
        if (n < 0 && errno == EINTR)
            continue;
        if (n < 0 && (errno == EAGAIN || errno == EWOULDBLOCK))
            return;
        if (n <= 0) {
            dropClient(n == 0 ? "hung up" : std::string("failed: ") + std::strerror(errno));
            return;
        }
        m_buffer.append(std::span(bytes, static_cast<std::size_t>(n)));
        while (auto record = m_buffer.take()) {
            auto message = decodeClientMessage(*record);
            if (!message)
                continue;
            if (auto* armed = std::get_if<SetArmed>(&*message))
                m_armed = armed->armed;
            else if (auto* buttons = std::get_if<SetPointerButtons>(&*message))
                m_wantsButtons = buttons->wanted;
        }
    }
}

void ClientLink::recheckSession()
{
    if (m_clientFd >= 0 && !isAllowed(m_clientUid, readActiveUid(m_seatFile)))
        dropClient("dropped — its user left the foreground");
    if (const auto line = m_refusals.flush(RefusalLog::Clock::now()))
        logLine(*line);
}

void ClientLink::report(const ServiceMessage& message)
{
    if (m_clientFd >= 0 && !sendTo(m_clientFd, message))
        dropClient("dropped — it stopped reading");
}

void ClientLink::setHealth(std::uint16_t devicesGrabbed)
{
    if (devicesGrabbed == m_health)
        return;
    m_health = devicesGrabbed;
    report(Health{devicesGrabbed});
}

bool ClientLink::sendTo(int fd, const ServiceMessage& message)
{
    const Record record = encode(message);
    for (;;) {
        ssize_t n = send(fd, record.data(), record.size(), MSG_DONTWAIT | MSG_NOSIGNAL);
        if (n < 0 && errno == EINTR)
            continue;
        // A short write cannot be finished later without blocking or queueing; it counts as
        // a full buffer. (The kernel takes small writes whole or not at all on a Unix socket.)
        return n == static_cast<ssize_t>(record.size());
    }
}

void ClientLink::dropClient(const std::string& why)
{
    logLine("client " + why + "; keys go to the desktop");
    close(m_clientFd);
    m_clientFd = -1;
    m_armed = false;
    m_wantsButtons = false;
}

} // namespace keyd
