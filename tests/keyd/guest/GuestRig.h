#pragma once

// The pieces of the real-kernel test: virtual keyboards made with uinput (the "hardware"),
// observers that read a device node as the desktop would, the service as a child process and
// a client on its socket. Runs as root inside the test machine.

#include "../FedInput.h"
#include "keyservice/Protocol.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <functional>
#include <libevdev/libevdev-uinput.h>
#include <poll.h>
#include <stdexcept>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

namespace guest {

using namespace std::chrono_literals;
using Millis = std::chrono::milliseconds;

inline constexpr const char* kSocket = "/run/keyd-guest-test.sock";
inline constexpr const char* kLog = "/tmp/keyd-guest-test.log";

inline int millisLeft(std::chrono::steady_clock::time_point end)
{
    const auto left = std::chrono::duration_cast<Millis>(end - std::chrono::steady_clock::now());
    return static_cast<int>(std::max<long long>(0, left.count()));
}

// Polls `done` until it holds or `timeout` passes; answers whether it held.
inline bool waitUntil(const std::function<bool()>& done, Millis timeout)
{
    const auto end = std::chrono::steady_clock::now() + timeout;
    while (!done()) {
        if (millisLeft(end) == 0)
            return false;
        std::this_thread::sleep_for(5ms);
    }
    return true;
}

// The node of the input device with this name; empty while there is none.
inline std::string nodeOf(const std::string& name)
{
    for (const auto& entry : std::filesystem::directory_iterator("/sys/class/input")) {
        const std::string sys = entry.path().filename();
        std::string line;
        std::getline(std::ifstream(entry.path() / "device/name"), line);
        if (sys.starts_with("event") && line == name)
            return "/dev/input/" + sys;
    }
    return {};
}

// The node once it is there and readable; empty if it never comes within `timeout`.
inline std::string waitForNode(const std::string& name, Millis timeout)
{
    std::string node;
    waitUntil([&] { return !(node = nodeOf(name)).empty() && access(node.c_str(), R_OK) == 0; },
              timeout);
    return node;
}

class VirtualKeyboard {
public:
    VirtualKeyboard(std::string name, std::vector<unsigned> keys)
        : m_name(std::move(name))
        , m_keys(std::move(keys))
    {
        plug();
    }
    ~VirtualKeyboard() { unplug(); }

    void plug()
    {
        libevdev* dev = libevdev_new();
        libevdev_set_name(dev, m_name.c_str());
        libevdev_set_id_bustype(dev, BUS_USB);
        for (unsigned key : m_keys)
            libevdev_enable_event_code(dev, EV_KEY, key, nullptr);
        libevdev_enable_event_code(dev, EV_MSC, MSC_SCAN, nullptr);
        // No EV_REP: the kernel would add repeats of its own to what the test writes.
        int rc = libevdev_uinput_create_from_device(dev, LIBEVDEV_UINPUT_OPEN_MANAGED, &m_device);
        libevdev_free(dev);
        if (rc < 0)
            throw std::runtime_error("cannot create " + m_name + ": " + std::strerror(-rc));
        m_node = waitForNode(m_name, 3000ms);
    }
    void unplug()
    {
        if (m_device)
            libevdev_uinput_destroy(m_device);
        m_device = nullptr;
    }
    // Writes the events and a SYN_REPORT in one go.
    void frame(std::vector<input_event> events)
    {
        events.push_back(fed::event(EV_SYN, SYN_REPORT, 0));
        const auto size = static_cast<ssize_t>(events.size() * sizeof(input_event));
        if (write(libevdev_uinput_get_fd(m_device), events.data(), size_t(size)) != size)
            throw std::runtime_error("cannot write to " + m_name);
    }
    void key(unsigned code, int value) { frame({fed::event(EV_KEY, code, value)}); }
    void tap(unsigned code)
    {
        key(code, 1);
        key(code, 0);
    }
    const std::string& node() const { return m_node; }
    const std::string& name() const { return m_name; }

private:
    std::string m_name;
    std::vector<unsigned> m_keys;
    libevdev_uinput* m_device = nullptr;
    std::string m_node;
};

// Reads a node as a desktop client would (not grabbing).
class Observer {
public:
    explicit Observer(const std::string& node)
        : m_fd(open(node.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC))
    {
        if (m_fd < 0)
            throw std::runtime_error("cannot open the node '" + node + "'");
        int clock = CLOCK_MONOTONIC; // time stamps comparable with the writer's clock
        ioctl(m_fd, EVIOCSCLOCKID, &clock);
    }
    ~Observer() { close(m_fd); }

    // Everything readable within `timeout` (returns early once `until` matched an event).
    std::vector<input_event> read(Millis timeout, unsigned untilCode = 0, int untilValue = -1)
    {
        std::vector<input_event> events;
        bool matched = false;
        const auto end = std::chrono::steady_clock::now() + timeout;
        for (;;) {
            input_event buffer[64];
            const ssize_t n = ::read(m_fd, buffer, sizeof buffer);
            for (ssize_t i = 0; i < n / static_cast<ssize_t>(sizeof(input_event)); ++i) {
                events.push_back(buffer[i]);
                matched = matched || (untilCode && buffer[i].type == EV_KEY &&
                                      buffer[i].code == untilCode && buffer[i].value == untilValue);
            }
            // The frame that carried the awaited event ends with its SYN_REPORT.
            if (matched && events.back().type == EV_SYN)
                return events;
            pollfd p{m_fd, POLLIN, 0};
            if ((n < 0 && errno != EAGAIN) || (n <= 0 && poll(&p, 1, millisLeft(end)) <= 0))
                return events; // the node went away, or the time is up
        }
    }
    // Whether the kernel says a key is down on this node; not knowing counts as yes.
    bool anyKeyDown() const
    {
        unsigned char bits[KEY_CNT / 8 + 1] = {};
        return ioctl(m_fd, EVIOCGKEY(sizeof bits), bits) < 0 ||
               std::any_of(std::begin(bits), std::end(bits), [](unsigned char b) { return b; });
    }

private:
    int m_fd;
};

class KeydProcess {
public:
    KeydProcess()
    {
        const char* binary = std::getenv("KEYD_BIN");
        if (!binary || !*binary)
            throw std::runtime_error("KEYD_BIN is not set");
        m_pid = fork();
        if (m_pid == 0) {
            dup2(open(kLog, O_WRONLY | O_CREAT | O_APPEND, 0644), STDERR_FILENO);
            const std::string socket = std::string("--socket=") + kSocket;
            execl(binary, binary, socket.c_str(), static_cast<char*>(nullptr));
            _exit(127);
        }
    }
    ~KeydProcess() { stop(); }

    // Sends SIGTERM and waits; returns the exit status.
    int stop()
    {
        if (m_pid <= 0)
            return -1;
        kill(m_pid, SIGTERM);
        int status = 0;
        waitpid(m_pid, &status, 0);
        m_pid = -1;
        return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
    }
    pid_t pid() const { return m_pid; }

private:
    pid_t m_pid = -1;
};

class Client {
public:
    // Connects, waiting for the socket, and reads the greeting.
    Client()
        : m_fd(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0))
    {
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        std::strcpy(address.sun_path, kSocket);
        const auto connected = [&] {
            return connect(m_fd, reinterpret_cast<sockaddr*>(&address), sizeof address) == 0;
        };
        if (!waitUntil(connected, 10s))
            throw std::runtime_error("cannot connect to the service");
        pumpUntil([&] { return hello && health >= 0; }, 5s);
    }
    ~Client() { ::close(m_fd); }

    void send(const keyd::ClientMessage& message)
    {
        const keyd::Record record = keyd::encode(message);
        if (::send(m_fd, record.data(), record.size(), MSG_NOSIGNAL) != 8)
            throw std::runtime_error("cannot send to the service");
    }
    // Reads messages until `done` holds or `timeout` passes; answers whether it held.
    // A timeout of zero reads only what is waiting.
    bool pumpUntil(const std::function<bool()>& done, Millis timeout)
    {
        const auto end = std::chrono::steady_clock::now() + timeout;
        while (!done()) {
            pollfd p{m_fd, POLLIN, 0};
            keyd::Record record;
            // The service writes whole records: one that is readable at all is there whole.
            if (poll(&p, 1, millisLeft(end)) <= 0 ||
                recv(m_fd, record.data(), record.size(), MSG_WAITALL) != 8)
                return false;
            const auto message = keyd::decodeServiceMessage(record);
            if (!message)
                continue;
            if (const auto* h = std::get_if<keyd::Hello>(&*message))
                hello = *h;
            else if (const auto* state = std::get_if<keyd::Health>(&*message))
                health = state->devicesGrabbed;
            else if (const auto* report = std::get_if<keyd::KeyReport>(&*message))
                reports.push_back(*report);
        }
        return true;
    }
    bool waitForHealth(int devices, Millis timeout)
    {
        return pumpUntil([&] { return health == devices; }, timeout);
    }

    std::optional<keyd::Hello> hello;
    int health = -1;
    std::vector<keyd::KeyReport> reports;

private:
    int m_fd;
};

} // namespace guest
