#pragma once

// The service: one poll() loop over the devices, their clones, udev, the socket and the
// signals. No threads; every key is decided from the state in memory when it is read.

#include "keyd/ActiveSession.h"
#include "keyd/ClientLink.h"
#include "keyd/DeviceSet.h"
#include "keyd/DeviceWatch.h"
#include "keyd/EvdevInput.h"

#include <chrono>
#include <memory>
#include <string>

namespace keyd {

struct ServiceOptions {
    std::string socketPath = kDefaultSocketPath;
    std::string seatFile = kSeatFile;
};

class Service {
public:
    ~Service();
    Service(const Service&) = delete;
    Service& operator=(const Service&) = delete;

    static Expected<std::unique_ptr<Service>, std::string> start(const ServiceOptions& options);

    // Runs until SIGTERM or SIGINT; returns the exit status.
    int run();

private:
    using Clock = std::chrono::steady_clock;

    Service() = default;
    void serviceDevice(const std::string& syspath, short revents);
    void rescan();
    int pollTimeout() const;

    EvdevBackend m_backend;
    DeviceSet m_devices{m_backend};
    std::unique_ptr<DeviceWatch> m_watch;
    std::unique_ptr<ClientLink> m_link;
    int m_signalFd = -1;
    Clock::time_point m_sessionCheckAt;
};

} // namespace keyd
