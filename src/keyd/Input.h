#pragma once

// What the service asks of an input device and of the clone it makes of one. The kernel's
// side (libevdev and uinput) is in EvdevInput; the tests hand in devices they feed by hand
// and clones that keep what was written to them, so that every decision taken above these
// interfaces runs without a kernel.

#include "support/Expected.h"

#include <bitset>
#include <linux/input.h>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace keyd {

struct DeviceError {
    std::string message;
};

struct DeviceCaps {
    std::string name;
    bool volumeKeys = false;
    bool shiftKeys = false;
    bool pointerButtons = false;
};

// The device the desktop reads in place of a grabbed one.
class Clone {
public:
    virtual ~Clone() = default;
    // Whole frames, in order.
    virtual Expected<Done, DeviceError> write(const std::vector<input_event>& events) = 0;
    // The next event the desktop wrote to the clone (its LED and sound requests among
    // others); none once nothing is waiting.
    virtual Expected<std::optional<input_event>, DeviceError> read() = 0;
    virtual int fd() const = 0; // -1 when there is nothing to poll
    virtual std::string syspath() const = 0;
    virtual std::string node() const = 0;
};

// One opened input device.
class InputDevice {
public:
    // What next() found. In ordinary reading, `sync` says the kernel dropped events; the
    // state they changed then comes as `sync` events read with `resyncing` set, until `again`.
    enum class Read { event, sync, again };

    virtual ~InputDevice() = default;
    virtual DeviceCaps caps() const = 0;
    virtual int fd() const = 0;
    virtual Expected<Read, DeviceError> next(bool resyncing, input_event& event) = 0;
    // True when the grab (or its release) took.
    virtual bool grab(bool on) = 0;
    // The keys the kernel says are down now; none when it cannot say.
    virtual std::optional<std::bitset<KEY_CNT>> keysDown() const = 0;
    // Hands the device a request the desktop wrote to its clone (an LED, a sound).
    virtual Expected<Done, DeviceError> write(const input_event& request) = 0;
    // A clone with the device's capabilities under another name.
    virtual Expected<std::unique_ptr<Clone>, DeviceError> createClone(const std::string& name) = 0;
};

// Opens device nodes.
class InputBackend {
public:
    virtual ~InputBackend() = default;
    virtual Expected<std::unique_ptr<InputDevice>, DeviceError> open(const std::string& node) = 0;
    // Whether the node is still there (a device that hung up may have been unplugged).
    virtual bool exists(const std::string& node) const = 0;
};

} // namespace keyd
