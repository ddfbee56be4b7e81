#pragma once

// One opened input device (/dev/input/eventN) and, for a device with volume keys, its uinput
// clone: the device is grabbed so that the desktop reads the clone instead, and the clone
// carries everything the router passes on.

#include "keyd/Input.h"
#include "keyd/KeyRouter.h"

#include <memory>
#include <string>

namespace keyd {

// Clones are named with this prefix, so that a scan never takes a clone for a keyboard.
inline constexpr const char* kClonePrefix = "velotide-keyd ";

enum class DeviceRole {
    ignored,
    keys,      // has a volume key: cloned, grabbed, routed
    shiftOnly, // a keyboard without volume keys: only asked whether a Shift key is down
    pointer,   // has pointer buttons: read without grabbing while a client wants buttons
};

DeviceRole roleOf(const DeviceCaps& caps);

class Device {
public:
    Device(std::string node, std::string syspath, std::unique_ptr<InputDevice> input);
    ~Device();
    Device(const Device&) = delete;
    Device& operator=(const Device&) = delete;

    const std::string& node() const { return m_node; }
    const std::string& syspath() const { return m_syspath; }
    const std::string& name() const { return m_caps.name; }
    const DeviceCaps& caps() const { return m_caps; }

    // Makes the clone; the desktop sees it at once but nothing goes through it until the
    // device is grabbed.
    Expected<Done, DeviceError> createClone();
    bool hasClone() const { return m_clone != nullptr; }
    std::string cloneSyspath() const;

    // Grabs the device if none of its keys is held, as far as both the events read so far and
    // the kernel's key state say; a key that went down during the grab undoes it. True when
    // the device is grabbed on return.
    bool grabIfNeutral();
    bool isGrabbed() const { return m_router.isGrabbed(); }

    // Reads every pending event (resyncing after SYN_DROPPED), routes each and writes the
    // passed frames to the clone. Reports and buttons land in `out`.
    Expected<Done, DeviceError> drain(const RouteContext& context, RouteOutput& out);

    // Hands the desktop's LED and sound requests, written to the clone, to the device.
    Expected<Done, DeviceError> forwardToDevice();

    // True when the kernel says a Shift key of this device is down now.
    bool isShiftHeld() const;

    int fd() const { return m_input->fd(); }
    int cloneFd() const { return m_clone ? m_clone->fd() : -1; }

private:
    bool isKernelNeutral() const;

    std::string m_node;
    std::string m_syspath;
    std::unique_ptr<InputDevice> m_input;
    DeviceCaps m_caps;
    std::unique_ptr<Clone> m_clone;
    KeyRouter m_router;
};

} // namespace keyd
