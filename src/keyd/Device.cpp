#include "keyd/Device.h"

#include "keyd/Log.h"

#include <string_view>

namespace keyd {

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

Device::Device(std::string node, std::string syspath, std::unique_ptr<InputDevice> input)
    : m_node(std::move(node))
    , m_syspath(std::move(syspath))
    , m_input(std::move(input))
    , m_caps(m_input->caps())
{
}

Device::~Device()
{
    // Ungrab first: from here on the desktop reads the device itself. Then the clone goes,
    // and with it whatever key it still held.
    if (m_router.isGrabbed())
        m_input->grab(false);
    m_clone.reset();
}

Expected<Done, DeviceError> Device::createClone()
{
    auto clone = m_input->createClone(kClonePrefix + name());
    if (!clone)
        return clone.error();
    m_clone = std::move(clone.value());
    return Done{};
}

std::string Device::cloneSyspath() const
{
    return m_clone ? m_clone->syspath() : "";
}

bool Device::grabIfNeutral()
{
    if (m_router.isGrabbed())
        return true;
    if (!m_clone || !m_router.isNeutral() || !isKernelNeutral())
        return false;
    if (!m_input->grab(true))
        return false;
    if (!isKernelNeutral()) {
        // A key went down between the check and the grab: the desktop may have seen it, so
        // it must see its release too. Try again once everything is up.
        m_input->grab(false);
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
    bool resyncing = false;
    input_event event;
    for (;;) {
        auto read = m_input->next(resyncing, event);
        if (!read)
            return read.error();
        if (*read == InputDevice::Read::event) {
            m_router.route(event, context, out);
        } else if (*read == InputDevice::Read::sync) {
            if (!resyncing) {
                // This is the SYN_DROPPED itself; the resync deltas follow.
                logLine("events of " + name() + " dropped by the kernel — resynchronising");
                m_router.completeFrame(out);
                resyncing = true;
            } else {
                m_router.route(event, context, out);
            }
        } else if (!resyncing) {
            break;
        } else {
            resyncing = false;
        }
    }
    if (out.frame.empty())
        return Done{};
    auto written = m_clone->write(out.frame);
    out.frame.clear();
    return written;
}

Expected<Done, DeviceError> Device::forwardToDevice()
{
    for (;;) {
        auto request = m_clone->read();
        if (!request)
            return request.error();
        if (!*request)
            return Done{};
        const input_event& event = **request;
        if (event.type != EV_LED && event.type != EV_SND)
            continue;
        if (auto written = m_input->write(event); !written)
            return written;
    }
}

bool Device::isShiftHeld() const
{
    const auto down = m_input->keysDown();
    return down && (down->test(KEY_LEFTSHIFT) || down->test(KEY_RIGHTSHIFT));
}

bool Device::isKernelNeutral() const
{
    const auto down = m_input->keysDown();
    return down && down->none();
}

} // namespace keyd
