#include "keyd/Device.h"

#include "keyd/Log.h"

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <libevdev/libevdev-uinput.h>
#include <libevdev/libevdev.h>
#include <string_view>
#include <sys/ioctl.h>
#include <unistd.h>

namespace keyd {

namespace {

DeviceError errorOf(const std::string& what, int error)
{
    return DeviceError{what + ": " + std::strerror(error)};
}

bool testBit(const unsigned char* bits, unsigned bit)
{
    return (bits[bit / 8] >> (bit % 8)) & 1;
}

} // namespace

DeviceRole roleOf(const DeviceCaps& caps)
{
    if (std::string_view(caps.name).starts_with(kClonePrefix))
        return DeviceRole::ignored;
    if (caps.volumeKeys)
        return DeviceRole::keys;
    if (caps.shiftKeys)
        return DeviceRole::shiftOnly;
    if (caps.pointerButtons)
        return DeviceRole::pointer;
    return DeviceRole::ignored;
}

Device::~Device()
{
    // Ungrab first: from here on the desktop reads the device itself. Destroying the clone
    // makes the kernel release whatever key the clone still held.
    if (m_router.isGrabbed())
        ioctl(m_fd, EVIOCGRAB, 0);
    if (m_clone)
        libevdev_uinput_destroy(m_clone);
    if (m_evdev)
        libevdev_free(m_evdev);
    if (m_fd >= 0)
        close(m_fd);
    if (m_stateFd >= 0)
        close(m_stateFd);
}

Expected<std::unique_ptr<Device>, DeviceError> Device::open(const std::string& node,
                                                            const std::string& syspath)
{
    std::unique_ptr<Device> device(new Device);
    device->m_node = node;
    device->m_syspath = syspath;
    device->m_fd = ::open(node.c_str(), O_RDWR | O_NONBLOCK | O_CLOEXEC);
    if (device->m_fd < 0)
        return errorOf("cannot open " + node, errno);
    // Asking the kernel which keys are down also throws away the asker's unread key events,
    // so the question goes through a handle of its own that is never read: asked through
    // the reading handle, it would lose key presses still queued behind the one at hand.
    device->m_stateFd = ::open(node.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
    if (device->m_stateFd < 0)
        return errorOf("cannot open " + node, errno);
    // Monotonic time stamps, so that pass-through delays can be measured against the clone's.
    int clock = CLOCK_MONOTONIC;
    ioctl(device->m_fd, EVIOCSCLOCKID, &clock);
    if (int rc = libevdev_new_from_fd(device->m_fd, &device->m_evdev); rc < 0)
        return errorOf("cannot read " + node, -rc);
    const char* name = libevdev_get_name(device->m_evdev);
    device->m_name = name ? name : "";
    return device;
}

DeviceCaps Device::caps() const
{
    auto has = [this](unsigned code) -> bool {
        return libevdev_has_event_code(m_evdev, EV_KEY, code) != 0;
    };
    return DeviceCaps{m_name, has(KEY_VOLUMEUP) || has(KEY_VOLUMEDOWN) || has(KEY_MUTE),
                      has(KEY_LEFTSHIFT) || has(KEY_RIGHTSHIFT), has(BTN_LEFT)};
}

Expected<Done, DeviceError> Device::createClone()
{
    // The clone has no EV_REP: the kernel would otherwise repeat held keys on the clone by
    // itself, on top of the device's own repeats that are passed on. No EV_FF either: nothing
    // here would answer a force-feedback upload, and the uploader would hang waiting.
    libevdev_disable_event_type(m_evdev, EV_REP);
    libevdev_disable_event_type(m_evdev, EV_FF);
    libevdev_set_name(m_evdev, (kClonePrefix + m_name).c_str());
    int rc = libevdev_uinput_create_from_device(m_evdev, LIBEVDEV_UINPUT_OPEN_MANAGED, &m_clone);
    libevdev_set_name(m_evdev, m_name.c_str());
    if (rc < 0) {
        m_clone = nullptr;
        return errorOf("cannot create the clone of " + m_node, -rc);
    }
    int fd = libevdev_uinput_get_fd(m_clone);
    fcntl(fd, F_SETFL, fcntl(fd, F_GETFL) | O_NONBLOCK);
    return Done{};
}

std::string Device::cloneSyspath() const
{
    const char* path = m_clone ? libevdev_uinput_get_syspath(m_clone) : nullptr;
    return path ? path : "";
}

std::string Device::cloneNode() const
{
    const char* node = m_clone ? libevdev_uinput_get_devnode(m_clone) : nullptr;
    return node ? node : "";
}

bool Device::grabIfNeutral()
{
    if (m_router.isGrabbed())
        return true;
    if (!m_clone || !m_router.isNeutral() || !isKernelNeutral())
        return false;
    if (ioctl(m_fd, EVIOCGRAB, 1) < 0)
        return false;
    if (!isKernelNeutral()) {
        // A key went down between the check and the grab: the desktop may have seen it, so
        // it must see its release too. Try again once everything is up.
        ioctl(m_fd, EVIOCGRAB, 0);
        return false;
    }
    // Neutral on both sides of the grab. What remains possible is a whole press and release
    // inside the microseconds between the two checks, which no hand makes; the desktop could
    // then see that press from both nodes, but never a key left down.
    m_router.setGrabbed(true);
    return true;
}

Expected<Done, DeviceError> Device::drain(const RouteContext& context, RouteOutput& out)
{
    unsigned flags = LIBEVDEV_READ_FLAG_NORMAL;
    input_event event;
    for (;;) {
        int rc = libevdev_next_event(m_evdev, flags, &event);
        if (rc == LIBEVDEV_READ_STATUS_SUCCESS) {
            m_router.route(event, context, out);
        } else if (rc == LIBEVDEV_READ_STATUS_SYNC) {
            if (flags == LIBEVDEV_READ_FLAG_NORMAL) {
                // This is the SYN_DROPPED itself; the resync deltas follow in sync mode.
                logLine("events of " + m_name + " dropped by the kernel — resynchronising");
                m_router.completeFrame(out);
                flags = LIBEVDEV_READ_FLAG_SYNC;
            } else {
                m_router.route(event, context, out);
            }
        } else if (rc == -EAGAIN) {
            if (flags == LIBEVDEV_READ_FLAG_NORMAL)
                break;
            flags = LIBEVDEV_READ_FLAG_NORMAL;
        } else {
            return errorOf("cannot read " + m_node, -rc);
        }
    }
    if (out.frame.empty())
        return Done{};
    auto written = writeToClone(out.frame);
    out.frame.clear();
    return written;
}

Expected<Done, DeviceError> Device::writeToClone(const std::vector<input_event>& frame)
{
    // uinput takes any number of whole events in one write.
    const auto* bytes = reinterpret_cast<const char*>(frame.data());
    std::size_t left = frame.size() * sizeof(input_event);
    while (left > 0) {
        ssize_t n = write(libevdev_uinput_get_fd(m_clone), bytes, left);
        if (n < 0 && errno == EINTR)
            continue;
        if (n <= 0)
            return errorOf("cannot write to the clone of " + m_node, n < 0 ? errno : EIO);
        bytes += n;
        left -= static_cast<std::size_t>(n);
    }
    return Done{};
}

Expected<Done, DeviceError> Device::forwardToDevice()
{
    input_event event;
    for (;;) {
        ssize_t n = read(libevdev_uinput_get_fd(m_clone), &event, sizeof event);
        if (n < 0 && errno == EINTR)
            continue;
        if (n < 0 && errno == EAGAIN)
            return Done{};
        if (n != sizeof event)
            return errorOf("cannot read the clone of " + m_node, n < 0 ? errno : EIO);
        if (event.type != EV_LED && event.type != EV_SND)
            continue;
        if (write(m_fd, &event, sizeof event) != sizeof event)
            return errorOf("cannot set the LEDs of " + m_node, errno);
    }
}

bool Device::isShiftHeld() const
{
    unsigned char bits[KEY_CNT / 8 + 1] = {};
    if (ioctl(m_stateFd, EVIOCGKEY(sizeof bits), bits) < 0)
        return false;
    return testBit(bits, KEY_LEFTSHIFT) || testBit(bits, KEY_RIGHTSHIFT);
}

bool Device::isKernelNeutral() const
{
    unsigned char bits[KEY_CNT / 8 + 1] = {};
    if (ioctl(m_stateFd, EVIOCGKEY(sizeof bits), bits) < 0)
        return false;
    for (unsigned char byte : bits)
        if (byte)
            return false;
    return true;
}

int Device::fd() const
{
    return m_fd;
}

int Device::cloneFd() const
{
    return m_clone ? libevdev_uinput_get_fd(m_clone) : -1;
}

} // namespace keyd
