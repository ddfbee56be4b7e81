#include "keyd/EvdevInput.h"

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <libevdev/libevdev-uinput.h>
#include <libevdev/libevdev.h>
#include <sys/ioctl.h>
#include <unistd.h>

namespace keyd {

namespace {

DeviceError errorOf(const std::string& what, int error)
{
    return DeviceError{what + ": " + std::strerror(error)};
}

class UinputClone final : public Clone {
public:
    UinputClone(libevdev_uinput* clone, std::string deviceNode)
        : m_clone(clone)
        , m_deviceNode(std::move(deviceNode))
    {
        int fd = libevdev_uinput_get_fd(m_clone);
        fcntl(fd, F_SETFL, fcntl(fd, F_GETFL) | O_NONBLOCK);
    }
    // Destroying the clone makes the kernel release whatever key the clone still held.
    ~UinputClone() override { libevdev_uinput_destroy(m_clone); }

    Expected<Done, DeviceError> write(const std::vector<input_event>& events) override
    {
        // uinput takes any number of whole events in one write.
        const auto* bytes = reinterpret_cast<const char*>(events.data());
        std::size_t left = events.size() * sizeof(input_event);
        while (left > 0) {
            ssize_t n = ::write(fd(), bytes, left);
            if (n < 0 && errno == EINTR)
                continue;
            if (n <= 0)
                return errorOf("cannot write to the clone of " + m_deviceNode, n < 0 ? errno : EIO);
            bytes += n;
            left -= static_cast<std::size_t>(n);
        }
        return Done{};
    }

    Expected<std::optional<input_event>, DeviceError> read() override
    {
        input_event event;
        for (;;) {
            ssize_t n = ::read(fd(), &event, sizeof event);
            if (n < 0 && errno == EINTR)
                continue;
            if (n < 0 && errno == EAGAIN)
                return std::optional<input_event>();
            if (n != sizeof event)
                return errorOf("cannot read the clone of " + m_deviceNode, n < 0 ? errno : EIO);
            return std::optional<input_event>(event);
        }
    }

    int fd() const override { return libevdev_uinput_get_fd(m_clone); }

    std::string syspath() const override
    {
        const char* path = libevdev_uinput_get_syspath(m_clone);
        return path ? path : "";
    }

    std::string node() const override
    {
        const char* node = libevdev_uinput_get_devnode(m_clone);
        return node ? node : "";
    }

private:
    libevdev_uinput* m_clone;
    std::string m_deviceNode;
};

class EvdevDevice final : public InputDevice {
public:
    explicit EvdevDevice(std::string node)
        : m_node(std::move(node))
    {
    }
    ~EvdevDevice() override
    {
        if (m_evdev)
            libevdev_free(m_evdev);
        if (m_fd >= 0)
            close(m_fd);
        if (m_stateFd >= 0)
            close(m_stateFd);
    }

    Expected<Done, DeviceError> open()
    {
        m_fd = ::open(m_node.c_str(), O_RDWR | O_NONBLOCK | O_CLOEXEC);
        if (m_fd < 0)
            return errorOf("cannot open " + m_node, errno);
        // Asking the kernel which keys are down also throws away the asker's unread key
        // events, so the question goes through a handle of its own that is never read: asked
        // through the reading handle, it would lose key presses still queued behind the one
        // at hand.
        m_stateFd = ::open(m_node.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
        if (m_stateFd < 0)
            return errorOf("cannot open " + m_node, errno);
        // Monotonic time stamps, so that pass-through delays can be measured against the
        // clone's.
        int clock = CLOCK_MONOTONIC;
        ioctl(m_fd, EVIOCSCLOCKID, &clock);
        if (int rc = libevdev_new_from_fd(m_fd, &m_evdev); rc < 0)
            return errorOf("cannot read " + m_node, -rc);
        const char* name = libevdev_get_name(m_evdev);
        m_name = name ? name : "";
        return Done{};
    }

    DeviceCaps caps() const override
    {
        auto has = [this](unsigned code) -> bool {
            return libevdev_has_event_code(m_evdev, EV_KEY, code) != 0;
        };
        return DeviceCaps{m_name, has(KEY_VOLUMEUP) || has(KEY_VOLUMEDOWN) || has(KEY_MUTE),
                          has(KEY_LEFTSHIFT) || has(KEY_RIGHTSHIFT), has(BTN_LEFT)};
    }

    int fd() const override { return m_fd; }

    Expected<Read, DeviceError> next(bool resyncing, input_event& event) override
    {
        const unsigned flags = resyncing ? LIBEVDEV_READ_FLAG_SYNC : LIBEVDEV_READ_FLAG_NORMAL;
        const int rc = libevdev_next_event(m_evdev, flags, &event);
        if (rc == LIBEVDEV_READ_STATUS_SUCCESS)
            return Read::event;
        if (rc == LIBEVDEV_READ_STATUS_SYNC)
            return Read::sync;
        if (rc == -EAGAIN)
            return Read::again;
        return errorOf("cannot read " + m_node, -rc);
    }

    bool grab(bool on) override { return ioctl(m_fd, EVIOCGRAB, on ? 1 : 0) == 0; }

    std::optional<std::bitset<KEY_CNT>> keysDown() const override
    {
        unsigned char bits[KEY_CNT / 8 + 1] = {};
        if (ioctl(m_stateFd, EVIOCGKEY(sizeof bits), bits) < 0)
            return std::nullopt;
        std::bitset<KEY_CNT> down;
        for (unsigned code = 0; code < KEY_CNT; ++code)
            down[code] = (bits[code / 8] >> (code % 8)) & 1;
        return down;
    }

    Expected<Done, DeviceError> write(const input_event& request) override
    {
        if (::write(m_fd, &request, sizeof request) != sizeof request)
            return errorOf("cannot set the LEDs of " + m_node, errno);
        return Done{};
    }

    Expected<std::unique_ptr<Clone>, DeviceError> createClone(const std::string& name) override
    {
        // The clone has no EV_REP: the kernel would otherwise repeat held keys on the clone
        // by itself, on top of the device's own repeats that are passed on. No EV_FF either:
        // nothing here would answer a force-feedback upload, and the uploader would hang
        // waiting.
        libevdev_disable_event_type(m_evdev, EV_REP);
        libevdev_disable_event_type(m_evdev, EV_FF);
        libevdev_set_name(m_evdev, name.c_str());
        libevdev_uinput* clone = nullptr;
        int rc = libevdev_uinput_create_from_device(m_evdev, LIBEVDEV_UINPUT_OPEN_MANAGED, &clone);
        libevdev_set_name(m_evdev, m_name.c_str());
        if (rc < 0)
            return errorOf("cannot create the clone of " + m_node, -rc);
        return std::unique_ptr<Clone>(std::make_unique<UinputClone>(clone, m_node));
    }

private:
    std::string m_node;
    std::string m_name;
    int m_fd = -1;
    int m_stateFd = -1; // only for asking which keys are down; never read
    libevdev* m_evdev = nullptr;
};

} // namespace

Expected<std::unique_ptr<InputDevice>, DeviceError> EvdevBackend::open(const std::string& node)
{
    auto device = std::make_unique<EvdevDevice>(node);
    if (auto opened = device->open(); !opened)
        return opened.error();
    return std::unique_ptr<InputDevice>(std::move(device));
}

bool EvdevBackend::exists(const std::string& node) const
{
    return access(node.c_str(), F_OK) == 0;
}

} // namespace keyd
