#pragma once

// The devices the service holds, by syspath: which to open and in what role, the clones made
// and grabbed, the ones that hung up or came and went, and the reads that feed the client.
// Everything here goes through InputBackend, so that it runs without a kernel as well.

#include "keyd/Device.h"
#include "keyd/DeviceWatch.h"

#include <chrono>
#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <vector>

namespace keyd {

class DeviceSet {
public:
    using Clock = std::chrono::steady_clock;

    explicit DeviceSet(InputBackend& backend);

    void add(const DeviceEvent& event);
    void remove(const std::string& syspath);
    // Reads a device that has something to say (`hungUp`: it hung up instead) and routes its
    // events with the client's arming of the moment; reports and buttons land in `out`.
    void service(const std::string& syspath, bool hungUp, bool armed, RouteOutput& out);
    // Pointer devices are opened while a client wants buttons; true when they must be looked
    // for now (the caller rescans).
    bool wantPointers(bool wanted);

    // When the devices that failed to open should be looked for again.
    const std::optional<Clock::time_point>& retryAt() const { return m_retryAt; }
    void retryStarted() { m_retryAt.reset(); }

    // Devices grabbed now, each with a working clone.
    std::uint16_t grabbedCount() const;
    // Whether a Shift key is down on any keyboard.
    bool isShiftHeld() const;
    std::size_t size() const { return m_devices.size(); }
    void clear();

    struct Watched {
        int fd;
        std::string syspath;
    };
    // The descriptors to poll: every device read (keys and pointers) and every clone.
    std::vector<Watched> watched() const;

private:
    void drop(const std::string& syspath, const std::string& why);
    bool isOwnClone(const std::string& syspath) const;

    InputBackend& m_backend;
    std::map<std::string, std::unique_ptr<Device>> m_devices; // by syspath
    std::map<std::string, DeviceRole> m_roles;
    std::set<std::string> m_failedNodes; // logged once, retried by the rescan
    std::optional<Clock::time_point> m_retryAt;
    bool m_pointersWanted = false;
};

} // namespace keyd
