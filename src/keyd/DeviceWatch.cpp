#include "keyd/DeviceWatch.h"

#include <cstring>
#include <libudev.h>
#include <string_view>
#include <unistd.h>

namespace keyd {

namespace {

bool isEventNode(udev_device* device)
{
    const char* name = udev_device_get_sysname(device);
    return name && std::string_view(name).starts_with("event") && udev_device_get_devnode(device);
}

} // namespace

DeviceWatch::~DeviceWatch()
{
    if (m_monitor)
        udev_monitor_unref(m_monitor);
    if (m_udev)
        udev_unref(m_udev);
}

Expected<std::unique_ptr<DeviceWatch>, WatchError> DeviceWatch::start()
{
    std::unique_ptr<DeviceWatch> watch(new DeviceWatch);
    watch->m_udev = udev_new();
    if (!watch->m_udev)
        return WatchError{"cannot reach udev"};
    // udev's own events come after its rules ran; with no udev daemon there are only the
    // kernel's (device nodes then come from devtmpfs, ready when the event is sent).
    const bool udevRuns = access("/run/udev/control", F_OK) == 0;
    watch->m_monitor = udev_monitor_new_from_netlink(watch->m_udev, udevRuns ? "udev" : "kernel");
    if (!watch->m_monitor)
        return WatchError{"cannot watch for input devices"};
    udev_monitor_filter_add_match_subsystem_devtype(watch->m_monitor, "input", nullptr);
    if (udev_monitor_enable_receiving(watch->m_monitor) < 0)
        return WatchError{"cannot watch for input devices"};
    return watch;
}

std::vector<DeviceEvent> DeviceWatch::scan()
{
    std::vector<DeviceEvent> found;
    udev_enumerate* enumerate = udev_enumerate_new(m_udev);
    udev_enumerate_add_match_subsystem(enumerate, "input");
    udev_enumerate_scan_devices(enumerate);
    udev_list_entry* entry = nullptr;
    udev_list_entry_foreach(entry, udev_enumerate_get_list_entry(enumerate))
    {
        udev_device* device = udev_device_new_from_syspath(m_udev, udev_list_entry_get_name(entry));
        if (device && isEventNode(device))
            found.push_back(DeviceEvent{DeviceEvent::Kind::added, udev_device_get_devnode(device),
                                        udev_device_get_syspath(device)});
        if (device)
            udev_device_unref(device);
    }
    udev_enumerate_unref(enumerate);
    return found;
}

std::vector<DeviceEvent> DeviceWatch::receive()
{
    std::vector<DeviceEvent> events;
    while (udev_device* device = udev_monitor_receive_device(m_monitor)) {
        const char* action = udev_device_get_action(device);
        if (action && isEventNode(device)) {
            if (std::strcmp(action, "add") == 0)
                events.push_back(DeviceEvent{DeviceEvent::Kind::added,
                                             udev_device_get_devnode(device),
                                             udev_device_get_syspath(device)});
            else if (std::strcmp(action, "remove") == 0)
                events.push_back(DeviceEvent{DeviceEvent::Kind::removed,
                                             udev_device_get_devnode(device),
                                             udev_device_get_syspath(device)});
        }
        udev_device_unref(device);
    }
    return events;
}

int DeviceWatch::fd() const
{
    return udev_monitor_get_fd(m_monitor);
}

} // namespace keyd
