#include "keyd/Service.h"

#include "keyd/Log.h"

#include <csignal>
#include <poll.h>
#include <sys/signalfd.h>
#include <unistd.h>
#include <vector>

namespace keyd {

namespace {

constexpr auto kSessionCheckInterval = std::chrono::seconds(2);

} // namespace

Service::~Service()
{
    if (m_devices.size() > 0)
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
        service->m_devices.add(event);
    service->m_link->setHealth(service->m_devices.grabbedCount());
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
        const bool resting = m_link->isAcceptResting(Clock::now());
        fds.push_back({resting ? -1 : m_link->listenFd(), POLLIN, 0});
        fds.push_back({m_link->clientFd(), POLLIN, 0}); // a negative fd is skipped by poll
        constexpr std::size_t fixed = 4;
        for (const auto& [fd, syspath] : m_devices.watched()) {
            fds.push_back({fd, POLLIN, 0});
            owners.push_back(syspath);
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
        // Its reading is bounded, and new connections wait until the keyboards are served.
        if (fds[3].revents)
            m_link->receive();
        for (std::size_t i = fixed; i < fds.size(); ++i) {
            if (fds[i].revents)
                serviceDevice(owners[i - fixed], fds[i].revents);
        }
        if (fds[2].revents)
            m_link->acceptClient();
        if (m_devices.wantPointers(m_link->wantsButtons()))
            rescan();
        if (fds[1].revents) {
            for (const DeviceEvent& event : m_watch->receive()) {
                if (event.kind == DeviceEvent::Kind::added)
                    m_devices.add(event);
                else
                    m_devices.remove(event.syspath);
            }
        }
        const auto now = Clock::now();
        if (const auto& retry = m_devices.retryAt(); retry && now >= *retry)
            rescan();
        if (now >= m_sessionCheckAt) {
            m_link->recheckSession();
            m_sessionCheckAt = now + kSessionCheckInterval;
        }
        m_link->setHealth(m_devices.grabbedCount());
    }
}

void Service::serviceDevice(const std::string& syspath, short revents)
{
    RouteOutput out;
    m_devices.service(syspath, (revents & (POLLERR | POLLHUP | POLLNVAL)) != 0, m_link->isArmed(),
                      out);
    for (const KeyReport& report : out.reports)
        m_link->report(report);
    for (const PointerButton& button : out.buttons)
        m_link->report(button);
}

void Service::rescan()
{
    m_devices.retryStarted();
    for (const DeviceEvent& event : m_watch->scan())
        m_devices.add(event);
}

int Service::pollTimeout() const
{
    auto next = m_sessionCheckAt;
    if (const auto& retry = m_devices.retryAt(); retry && *retry < next)
        next = *retry;
    if (m_link->isAcceptResting(Clock::now()) && *m_link->acceptResumesAt() < next)
        next = *m_link->acceptResumesAt();
    const auto wait = std::chrono::duration_cast<std::chrono::milliseconds>(next - Clock::now());
    return static_cast<int>(std::max<long long>(0, wait.count()));
}

} // namespace keyd
