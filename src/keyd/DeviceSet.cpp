#include "keyd/DeviceSet.h"

#include "keyd/Log.h"

namespace keyd {

namespace {

constexpr auto kRetryDelay = std::chrono::seconds(2);

} // namespace

DeviceSet::DeviceSet(InputBackend& backend)
    : m_backend(backend)
{
}

void DeviceSet::add(const DeviceEvent& event)
{
    if (m_devices.contains(event.syspath) || isOwnClone(event.syspath))
        return;
    auto opened = m_backend.open(event.node);
    if (!opened) {
        // A node can vanish between the event and the open; the rescan tells the two apart.
        if (m_failedNodes.insert(event.node).second)
            logLine(opened.error().message + " — will retry");
        m_retryAt = Clock::now() + kRetryDelay;
        return;
    }
    auto device = std::make_unique<Device>(event.node, event.syspath, std::move(opened.value()));
    const DeviceRole role = roleOf(device->caps());
    if (role == DeviceRole::ignored || (role == DeviceRole::pointer && !m_pointersWanted))
        return;
    if (role == DeviceRole::keys) {
        if (auto cloned = device->createClone(); !cloned) {
            if (m_failedNodes.insert(event.node).second)
                logLine(cloned.error().message + " — will retry");
            m_retryAt = Clock::now() + kRetryDelay;
            return;
        }
        if (device->grabIfNeutral())
            logLine("grabbed " + device->name() + " (" + device->node() + ")");
        else
            logLine("waiting for the keys of " + device->name() + " to be released");
    }
    m_failedNodes.erase(event.node);
    if (role == DeviceRole::shiftOnly)
        logLine("watching the Shift keys of " + device->name() + " (" + device->node() + ")");
    m_roles[event.syspath] = role;
    m_devices[event.syspath] = std::move(device);
}

void DeviceSet::remove(const std::string& syspath)
{
    auto it = m_devices.find(syspath);
    if (it == m_devices.end())
        return;
    if (m_roles[syspath] == DeviceRole::keys)
        logLine("released " + it->second->name() + " (" + it->second->node() + "), unplugged");
    m_devices.erase(it);
    m_roles.erase(syspath);
}

void DeviceSet::drop(const std::string& syspath, const std::string& why)
{
    logLine(why + " — device dropped, will retry");
    m_devices.erase(syspath);
    m_roles.erase(syspath);
    m_retryAt = Clock::now() + kRetryDelay;
}

void DeviceSet::service(const std::string& syspath, bool hungUp, bool armed, RouteOutput& out)
{
    auto it = m_devices.find(syspath);
    if (it == m_devices.end())
        return; // dropped earlier in this round
    Device& device = *it->second;
    if (hungUp) {
        // An unplugged device hangs up before udev says so; one still there is tried again.
        if (m_backend.exists(device.node()))
            drop(syspath, device.node() + " hung up");
        else
            remove(syspath);
        return;
    }
    if (device.hasClone()) {
        if (auto forwarded = device.forwardToDevice(); !forwarded) {
            drop(syspath, forwarded.error().message);
            return;
        }
    }
    RouteContext context{armed, m_pointersWanted, [this] { return isShiftHeld(); }};
    if (auto drained = device.drain(context, out); !drained) {
        drop(syspath, drained.error().message);
        return;
    }
    if (m_roles[syspath] == DeviceRole::keys && !device.isGrabbed() && device.grabIfNeutral())
        logLine("grabbed " + device.name() + " (" + device.node() + ")");
}

bool DeviceSet::wantPointers(bool wanted)
{
    if (wanted == m_pointersWanted)
        return false;
    m_pointersWanted = wanted;
    if (wanted)
        return true;
    for (auto it = m_roles.begin(); it != m_roles.end();) {
        if (it->second == DeviceRole::pointer) {
            m_devices.erase(it->first);
            it = m_roles.erase(it);
        } else {
            ++it;
        }
    }
    return false;
}

std::uint16_t DeviceSet::grabbedCount() const
{
    std::uint16_t grabbed = 0;
    for (const auto& [syspath, device] : m_devices)
        if (device->hasClone() && device->isGrabbed())
            ++grabbed;
    return grabbed;
}

bool DeviceSet::isShiftHeld() const
{
    for (const auto& [syspath, device] : m_devices) {
        const DeviceRole role = m_roles.at(syspath);
        if ((role == DeviceRole::keys || role == DeviceRole::shiftOnly) && device->isShiftHeld())
            return true;
    }
    return false;
}

void DeviceSet::clear()
{
    m_devices.clear();
    m_roles.clear();
}

std::vector<DeviceSet::Watched> DeviceSet::watched() const
{
    std::vector<Watched> fds;
    for (const auto& [syspath, device] : m_devices) {
        const DeviceRole role = m_roles.at(syspath);
        if (role == DeviceRole::keys || role == DeviceRole::pointer)
            fds.push_back({device->fd(), syspath});
        if (device->hasClone())
            fds.push_back({device->cloneFd(), syspath});
    }
    return fds;
}

bool DeviceSet::isOwnClone(const std::string& syspath) const
{
    for (const auto& [path, device] : m_devices) {
        const std::string clone = device->cloneSyspath();
        if (!clone.empty() && syspath.starts_with(clone + "/"))
            return true;
    }
    return false;
}

} // namespace keyd
