#pragma once

// One opened input device (/dev/input/eventN) and, for a device with volume keys, its uinput
// clone: the device is grabbed so that the desktop reads the clone instead, and the clone
// carries everything the router passes on.

#include "keyd/KeyRouter.h"
#include "support/Expected.h"

#include <memory>
#include <string>

struct libevdev;
struct libevdev_uinput;

namespace keyd {

// Clones are named with this prefix, so that a scan never takes a clone for a keyboard.
inline constexpr const char* kClonePrefix = "velotide-keyd ";

enum class DeviceRole {
    ignored,
    keys,      // has a volume key: cloned, grabbed, routed
    shiftOnly, // a keyboard without volume keys: only asked whether a Shift key is down
    pointer,   // has pointer buttons: read without grabbing while a client wants buttons
};

struct DeviceCaps {
    std::string name;
    bool volumeKeys = false;
    bool shiftKeys = false;
    bool pointerButtons = false;
};

DeviceRole roleOf(const DeviceCaps& caps);

struct DeviceError {
    std::string message;
};

class Device {
public:
    ~Device();
    Device(const Device&) = delete;
    Device& operator=(const Device&) = delete;

    // Opens the node, non-blocking, and reads its capabilities. Creates no clone yet.
    static Expected<std::unique_ptr<Device>, DeviceError> open(const std::string& node,
                                                               const std::string& syspath);

    const std::string& node() const { return m_node; }
    const std::string& syspath() const { return m_syspath; }
    const std::string& name() const { return m_name; }
    DeviceCaps caps() const;

    // Makes the uinput clone; the desktop sees it at once but nothing goes through it until
    // the device is grabbed.
    Expected<Done, DeviceError> createClone();
    bool hasClone() const { return m_clone != nullptr; }
    std::string cloneSyspath() const;
    std::string cloneNode() const;

    // Grabs the device if none of its keys is held, as far as both the events read so far and
    // the kernel's key state say; a key that went down during the grab undoes it. True when
    // the device is grabbed on return.
    bool grabIfNeutral();
    bool isGrabbed() const { return m_router.isGrabbed(); }

    // Reads every pending event (until EAGAIN, resyncing after SYN_DROPPED), routes each and
    // writes the passed frames to the clone. Reports and buttons land in `out`.
    Expected<Done, DeviceError> drain(const RouteContext& context, RouteOutput& out);

    // Hands the desktop's LED and sound requests, written to the clone, to the device.
    Expected<Done, DeviceError> forwardToDevice();

    // True when the kernel says a Shift key of this device is down now.
    bool isShiftHeld() const;

    int fd() const;
    int cloneFd() const;

private:
    Device() = default;
    bool isKernelNeutral() const;
    Expected<Done, DeviceError> writeToClone(const std::vector<input_event>& frame);

    std::string m_node;
    std::string m_syspath;
    std::string m_name;
    int m_fd = -1;
    int m_stateFd = -1; // only for asking which keys are down; never read
    libevdev* m_evdev = nullptr;
    libevdev_uinput* m_clone = nullptr;
    KeyRouter m_router;
};

} // namespace keyd
