#pragma once

// The input devices there are and the ones that come and go, from udev. Without a udev
// daemon (a bare system, a test machine) the kernel's own device events serve instead.

#include "support/Expected.h"

#include <memory>
#include <string>
#include <vector>

struct udev;
struct udev_monitor;

namespace keyd {

struct DeviceEvent {
    enum class Kind { added, removed };
    Kind kind = Kind::added;
    std::string node;    // /dev/input/eventN
    std::string syspath; // /sys/devices/.../input/inputM/eventN
};

struct WatchError {
    std::string message;
};

class DeviceWatch {
public:
    ~DeviceWatch();
    DeviceWatch(const DeviceWatch&) = delete;
    DeviceWatch& operator=(const DeviceWatch&) = delete;

    static Expected<std::unique_ptr<DeviceWatch>, WatchError> start();

    // Every event node there is now, as additions.
    std::vector<DeviceEvent> scan();
    // The additions and removals that arrived since the last call.
    std::vector<DeviceEvent> receive();
    int fd() const;

private:
    DeviceWatch() = default;

    udev* m_udev = nullptr;
    udev_monitor* m_monitor = nullptr;
};

} // namespace keyd
