#include "GuestRig.h"

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <dirent.h>
#include <fcntl.h>
#include <fstream>
#include <libevdev/libevdev-uinput.h>
#include <libevdev/libevdev.h>
#include <poll.h>
#include <sstream>
#include <stdexcept>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <thread>
#include <time.h>
#include <unistd.h>

namespace guest {

namespace {

int millisLeft(std::chrono::steady_clock::time_point end)
{
    const auto left = std::chrono::duration_cast<Millis>(end - std::chrono::steady_clock::now());
    return static_cast<int>(std::max<long long>(0, left.count()));
}

} // namespace

bool waitUntil(const std::function<bool()>& done, Millis timeout)
{
    const auto end = std::chrono::steady_clock::now() + timeout;
    while (!done()) {
        if (std::chrono::steady_clock::now() >= end)
            return false;
        std::this_thread::sleep_for(5ms);
    }
    return true;
}

std::string nodeOf(const std::string& name)
{
    DIR* dir = opendir("/sys/class/input");
    std::string found;
    while (dirent* entry = dir ? readdir(dir) : nullptr) {
        const std::string sys = entry->d_name;
        std::string line;
        std::getline(std::ifstream("/sys/class/input/" + sys + "/device/name"), line);
        if (sys.starts_with("event") && line == name) {
            found = "/dev/input/" + sys;
            break;
        }
    }
    if (dir)
        closedir(dir);
    return found;
}

std::string waitForNode(const std::string& name, Millis timeout)
{
    std::string node;
    waitUntil([&] { return !(node = nodeOf(name)).empty() && access(node.c_str(), R_OK) == 0; },
              timeout);
    return node;
}

VirtualKeyboard::VirtualKeyboard(std::string name, std::vector<unsigned> keys)
    : m_name(std::move(name))
    , m_keys(std::move(keys))
{
    plug();
}

void VirtualKeyboard::plug()
{
    if (m_device)
        return;
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

void VirtualKeyboard::unplug()
{
    if (m_device)
        libevdev_uinput_destroy(m_device);
    m_device = nullptr;
}

void VirtualKeyboard::frame(const std::vector<input_event>& events)
{
    std::vector<input_event> all = events;
    all.push_back(fed::event(EV_SYN, SYN_REPORT, 0));
    const auto size = static_cast<ssize_t>(all.size() * sizeof(input_event));
    if (write(libevdev_uinput_get_fd(m_device), all.data(), static_cast<size_t>(size)) != size)
        throw std::runtime_error("cannot write to " + m_name);
}

Observer::Observer(const std::string& node)
    : m_fd(open(node.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC))
{
    int clock = CLOCK_MONOTONIC; // time stamps comparable with the writer's clock
    if (m_fd >= 0)
        ioctl(m_fd, EVIOCSCLOCKID, &clock);
}

Observer::~Observer()
{
    if (m_fd >= 0)
        close(m_fd);
}

std::vector<input_event> Observer::read(Millis timeout, unsigned untilCode, int untilValue)
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
        if (n < 0 && errno != EAGAIN)
            return events; // the node went away
        pollfd p{m_fd, POLLIN, 0};
        if (n <= 0 && poll(&p, 1, millisLeft(end)) <= 0)
            return events;
    }
}

std::vector<unsigned> Observer::heldKeys() const
{
    unsigned char bits[KEY_CNT / 8 + 1] = {};
    std::vector<unsigned> held;
    if (ioctl(m_fd, EVIOCGKEY(sizeof bits), bits) < 0)
        return held;
    for (unsigned code = 0; code < KEY_CNT; ++code)
        if ((bits[code / 8] >> (code % 8)) & 1)
            held.push_back(code);
    return held;
}

KeydProcess::KeydProcess()
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

int KeydProcess::stop()
{
    if (m_pid <= 0)
        return -1;
    kill(m_pid, SIGTERM);
    int status = 0;
    waitpid(m_pid, &status, 0);
    m_pid = -1;
    return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

std::string KeydProcess::log() const
{
    std::ostringstream text;
    text << std::ifstream(kLog).rdbuf();
    return text.str();
}

Client::Client()
{
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::strcpy(address.sun_path, kSocket);
    m_fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (!waitUntil(
            [&] {
                return connect(m_fd, reinterpret_cast<sockaddr*>(&address), sizeof address) == 0;
            },
            10s))
        throw std::runtime_error("cannot connect to the service");
    pumpUntil([&] { return hello && health >= 0; }, 5s);
}

Client::~Client()
{
    ::close(m_fd);
}

void Client::send(const keyd::ClientMessage& message)
{
    const keyd::Record record = keyd::encode(message);
    if (::send(m_fd, record.data(), record.size(), MSG_NOSIGNAL) != 8)
        throw std::runtime_error("cannot send to the service");
}

bool Client::pumpUntil(const std::function<bool()>& done, Millis timeout)
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
        if (const auto* h = message ? std::get_if<keyd::Hello>(&*message) : nullptr)
            hello = *h;
        else if (const auto* state = message ? std::get_if<keyd::Health>(&*message) : nullptr)
            health = state->devicesGrabbed;
        else if (const auto* report = message ? std::get_if<keyd::KeyReport>(&*message) : nullptr)
            reports.push_back(*report);
    }
    return true;
}

} // namespace guest
