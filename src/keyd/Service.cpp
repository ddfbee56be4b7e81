#include "keyd/Service.h"

#include "keyd/Log.h"

#include <csignal>
#include <poll.h>
#include <sys/signalfd.h>
#include <unistd.h>
#include <vector>

namespace keyd {

namespace {

constexpr auto kRetryDelay = std::chrono::seconds(2);
constexpr auto kSessionCheckInterval = std::chrono::seconds(2);

} // namespace

Service::~Service()
{
    if (!m_devices.empty())
        logLine("releasing " + std::to_string(m_devices.size()) + " devices");
    m_devices.clear();
    if (m_signalFd >= 0)
        close(m_signalFd);
}

Expected<std::unique_ptr<Service>, std::string> Service::start(const ServiceOptions& options)
{
    std::unique_ptr<Service> service(new Service);
    sigset_t signals;
    sigemptyset(&signals);
    sigaddset(&signals, SIGTERM);
    sigaddset(&signals, SIGINT);
    sigprocmask(SIG_BLOCK, &signals, nullptr);
    std::signal(SIGPIPE, SIG_IGN);
    service->m_signalFd = signalfd(-1, &signals, SFD_NONBLOCK | SFD_CLOEXEC);
    if (service->m_signalFd < 0)
        return std::string("cannot watch for signals");

    auto watch = DeviceWatch::start();
    if (!watch)
        return watch.error().message;
    service->m_watch = std::move(watch.value());
    auto link = ClientLink::listen(options.socketPath, options.seatFile);
    if (!link)
        return link.error().message;
    service->m_link = std::move(link.value());

    for (const DeviceEvent& event : service->m_watch->scan())
        service->addDevice(event);
    service->updateHealth();
    service->m_sessionCheckAt = Clock::now() + kSessionCheckInterval;
    logLine("listening on " + options.socketPath);
    return service;
}

int Service::run()
{
    std::vector<pollfd> fds;
    std::vector<std::string> owners; // the device behind each entry past the fixed ones
    for (;;) {
        fds.clear();
        owners.clear();
        fds.push_back({m_signalFd, POLLIN, 0});
        fds.push_back({m_watch->fd(), POLLIN, 0});
        fds.push_back({m_link->listenFd(), POLLIN, 0});
        fds.push_back({m_link->clientFd(), POLLIN, 0}); // a negative fd is skipped by poll
        constexpr std::size_t fixed = 4;
        for (const auto& [syspath, device] : m_devices) {
            const DeviceRole role = m_roles[syspath];
            if (role == DeviceRole::keys || role == DeviceRole::pointer) {
                fds.push_back({device->fd(), POLLIN, 0});
                owners.push_back(syspath);
            }
            if (device->hasClone()) {
                fds.push_back({device->cloneFd(), POLLIN, 0});
                owners.push_back(syspath);
            }
        }

        if (poll(fds.data(), fds.size(), pollTimeout()) < 0) {
            if (errno == EINTR)
                continue;
            logLine("poll failed — stopping");
            return 1;
        }
        if (fds[0].revents) {
            signalfd_siginfo info;
            if (read(m_signalFd, &info, sizeof info) == sizeof info) {
                logLine("stopping on signal " + std::to_string(info.ssi_signo));
                return 0;
            }
        }
        // The client first: an arming change that arrived with a key press is the newer news.
        if (fds[3].revents)
            m_link->receive();
        if (fds[2].revents)
            m_link->acceptClient();
        followPointerWish();
        for (std::size_t i = fixed; i < fds.size(); ++i) {
            if (fds[i].revents)
                serviceDevice(owners[i - fixed], fds[i].revents);
        }
        if (fds[1].revents) {
            for (const DeviceEvent& event : m_watch->receive()) {
                if (event.kind == DeviceEvent::Kind::added)
                    addDevice(event);
                else
                    removeDevice(event.syspath);
            }
        }
        const auto now = Clock::now();
        if (m_rescanAt && now >= *m_rescanAt)
            rescan();
        if (now >= m_sessionCheckAt) {
            m_link->recheckSession();
            m_sessionCheckAt = now + kSessionCheckInterval;
        }
        updateHealth();
    }
}

void Service::addDevice(const DeviceEvent& event)
{
    if (m_devices.contains(event.syspath) || isOwnClone(event.syspath))
        return;
    auto opened = Device::open(event.node, event.syspath);
    if (!opened) {
        // A node can vanish between the event and the open; the rescan tells the two apart.
        if (m_failedNodes.insert(event.node).second)
            logLine(opened.error().message + " — will retry");
        m_rescanAt = Clock::now() + kRetryDelay;
        return;
    }
    std::unique_ptr<Device> device = std::move(opened.value());
    const DeviceRole role = roleOf(device->caps());
    if (role == DeviceRole::ignored || (role == DeviceRole::pointer && !m_link->wantsButtons()))
        return;
    if (role == DeviceRole::keys) {
        if (auto cloned = device->createClone(); !cloned) {
            if (m_failedNodes.insert(event.node).second)
                logLine(cloned.error().message + " — will retry");
            m_rescanAt = Clock::now() + kRetryDelay;
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

void Service::removeDevice(const std::string& syspath)
{
    auto it = m_devices.find(syspath);
    if (it == m_devices.end())
        return;
    if (m_roles[syspath] == DeviceRole::keys)
        logLine("released " + it->second->name() + " (" + it->second->node() + "), unplugged");
    m_devices.erase(it);
    m_roles.erase(syspath);
}

void Service::dropDevice(const std::string& syspath, const std::string& why)
{
    logLine(why + " — device dropped, will retry");
    m_devices.erase(syspath);
    m_roles.erase(syspath);
    m_rescanAt = Clock::now() + kRetryDelay;
}

void Service::serviceDevice(const std::string& syspath, short revents)
{
    auto it = m_devices.find(syspath);
    if (it == m_devices.end())
        return; // dropped earlier in this round
    Device& device = *it->second;
    if (revents & (POLLERR | POLLHUP | POLLNVAL)) {
        // An unplugged device hangs up before udev says so; one still there is tried again.
        if (access(device.node().c_str(), F_OK) == 0)
            dropDevice(syspath, device.node() + " hung up");
        else
            removeDevice(syspath);
        return;
    }
    if (device.hasClone()) {
        if (auto forwarded = device.forwardToDevice(); !forwarded) {
            dropDevice(syspath, forwarded.error().message);
            return;
        }
    }
    RouteContext context{m_link->isArmed(), m_link->wantsButtons(),
                         [this] { return isShiftHeld(); }};
    RouteOutput out;
    auto drained = device.drain(context, out);
    for (const KeyReport& report : out.reports)
        m_link->report(report);
    for (const PointerButton& button : out.buttons)
        m_link->report(button);
    if (!drained) {
        dropDevice(syspath, drained.error().message);
        return;
    }
    if (m_roles[syspath] == DeviceRole::keys && !device.isGrabbed() && device.grabIfNeutral())
        logLine("grabbed " + device.name() + " (" + device.node() + ")");
}

void Service::rescan()
{
    m_rescanAt.reset();
    for (const DeviceEvent& event : m_watch->scan())
        addDevice(event);
}

void Service::followPointerWish()
{
    const bool wanted = m_link->wantsButtons();
    if (wanted == m_pointersOpen)
        return;
    m_pointersOpen = wanted;
    if (wanted) {
        rescan();
        return;
    }
    for (auto it = m_roles.begin(); it != m_roles.end();) {
        if (it->second == DeviceRole::pointer) {
            m_devices.erase(it->first);
            it = m_roles.erase(it);
        } else {
            ++it;
        }
    }
}

void Service::updateHealth()
{
    std::uint16_t grabbed = 0;
    for (const auto& [syspath, device] : m_devices)
        if (device->hasClone() && device->isGrabbed())
            ++grabbed;
    m_link->setHealth(grabbed);
}

bool Service::isShiftHeld() const
{
    for (const auto& [syspath, device] : m_devices) {
        const DeviceRole role = m_roles.at(syspath);
        if ((role == DeviceRole::keys || role == DeviceRole::shiftOnly) && device->isShiftHeld())
            return true;
    }
    return false;
}

bool Service::isOwnClone(const std::string& syspath) const
{
    for (const auto& [path, device] : m_devices) {
        const std::string clone = device->cloneSyspath();
        if (!clone.empty() && syspath.starts_with(clone + "/"))
            return true;
    }
    return false;
}

int Service::pollTimeout() const
{
    auto next = m_sessionCheckAt;
    if (m_rescanAt && *m_rescanAt < next)
        next = *m_rescanAt;
    const auto wait = std::chrono::duration_cast<std::chrono::milliseconds>(next - Clock::now());
    return static_cast<int>(std::max<long long>(0, wait.count()));
}

} // namespace keyd
