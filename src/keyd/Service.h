#pragma once

// The service: one poll() loop over the devices, their clones, udev, the socket and the
// signals. No threads; every key is decided from the state in memory when it is read.

#include "keyd/ActiveSession.h"
#include "keyd/ClientLink.h"
#include "keyd/Device.h"
#include "keyd/DeviceWatch.h"

#include <chrono>
#include <map>
#include <memory>
#include <optional>
#include <set>
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
    void addDevice(const DeviceEvent& event);
    void removeDevice(const std::string& syspath);
    void dropDevice(const std::string& syspath, const std::string& why);
    void serviceDevice(const std::string& syspath, short revents);
    void rescan();
    void followPointerWish();
    void updateHealth();
    bool isShiftHeld() const;
    bool isOwnClone(const std::string& syspath) const;
    int pollTimeout() const;

    std::unique_ptr<DeviceWatch> m_watch;
    std::unique_ptr<ClientLink> m_link;
    int m_signalFd = -1;
    std::map<std::string, std::unique_ptr<Device>> m_devices; // by syspath
    std::map<std::string, DeviceRole> m_roles;
    std::set<std::string> m_failedNodes; // logged once, retried by the rescan
    std::optional<Clock::time_point> m_rescanAt;
    Clock::time_point m_sessionCheckAt;
    bool m_pointersOpen = false;
};

} // namespace keyd
