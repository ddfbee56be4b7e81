#pragma once

// The listening socket and the one client. Writes never block: a client that does not keep
// up (its socket buffer full) is dropped like one that hung up, and either way the keys go
// back to the desktop at once, because only a connected client can be armed.
//
// Reading and accepting do a bounded amount of work per call: the socket is open to every
// local user, and neither a crowd of connecting processes nor a client that floods the
// service with data may keep the poll loop from the keyboards. What is left over stays in
// the kernel's queues for the next round.

#include "keyd/RefusalLog.h"
#include "keyservice/Protocol.h"
#include "support/Expected.h"

#include <chrono>
#include <memory>
#include <optional>
#include <string>
#include <sys/types.h>

namespace keyd {

struct LinkError {
    std::string message;
};

class ClientLink {
public:
    ~ClientLink();
    ClientLink(const ClientLink&) = delete;
    ClientLink& operator=(const ClientLink&) = delete;

    // Listens on `path` (replacing a stale socket file, never one another service still
    // holds), open to every local user: who may stay is decided per connection from its peer
    // credentials.
    static Expected<std::unique_ptr<ClientLink>, LinkError> listen(const std::string& path,
                                                                   const std::string& seatFile);

    int listenFd() const { return m_listenFd; }
    // After a round that found more connections waiting than it takes, the listening socket
    // rests for a moment: the service sleeps through a crowd of connectors instead of waking
    // for each (a sleeping service is the one the scheduler runs first when a key comes),
    // and the connectors wait in the kernel's queue meanwhile.
    std::optional<std::chrono::steady_clock::time_point> acceptResumesAt() const
    {
        return m_acceptResumesAt;
    }
    bool isAcceptResting(std::chrono::steady_clock::time_point now) const
    {
        return m_acceptResumesAt && now < *m_acceptResumesAt;
    }
    int clientFd() const { return m_clientFd; }

    // Each takes at most a few connections or reads; call them once per poll round.
    void acceptClient();
    void receive();
    // Drops a client whose user left the foreground of the seat, and logs the refusals that
    // were only counted.
    void recheckSession();

    bool isArmed() const { return m_clientFd >= 0 && m_armed; }
    bool wantsButtons() const { return m_clientFd >= 0 && m_wantsButtons; }

    void report(const ServiceMessage& message);
    void setHealth(std::uint16_t devicesGrabbed);

private:
    ClientLink() = default;
    bool sendTo(int fd, const ServiceMessage& message);
    void dropClient(const std::string& why);

    std::string m_path;
    std::string m_seatFile;
    int m_lockFd = -1; // held while this service owns the socket
    int m_listenFd = -1;
    int m_clientFd = -1;
    uid_t m_clientUid = 0;
    bool m_armed = false;
    bool m_wantsButtons = false;
    RecordBuffer m_buffer;
    std::uint16_t m_health = 0;
    RefusalLog m_refusals;
    std::optional<std::chrono::steady_clock::time_point> m_acceptResumesAt;
};

} // namespace keyd
