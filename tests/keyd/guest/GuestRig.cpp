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

std::string readLine(const std::string& path)
{
    std::ifstream in(path);
    std::string line;
    std::getline(in, line);
    return line;
}

std::string nodeOf(const std::string& name)
{
    DIR* dir = opendir("/sys/class/input");
    if (!dir)
        return {};
    std::string found;
    while (dirent* entry = readdir(dir)) {
        std::string sys = entry->d_name;
        if (sys.rfind("event", 0) == 0 &&
            readLine("/sys/class/input/" + sys + "/device/name") == name) {
            found = "/dev/input/" + sys;
            break;
        }
    }
    closedir(dir);
    return found;
}

} // namespace

std::string waitForNode(const std::string& name, Millis timeout)
{
    const auto end = std::chrono::steady_clock::now() + timeout;
    do {
        std::string node = nodeOf(name);
        if (!node.empty() && access(node.c_str(), R_OK) == 0)
            return node;
        std::this_thread::sleep_for(5ms);
    } while (std::chrono::steady_clock::now() < end);
    return {};
}

bool waitForNoNode(const std::string& name, Millis timeout)
{
    const auto end = std::chrono::steady_clock::now() + timeout;
    do {
        if (nodeOf(name).empty())
            return true;
        std::this_thread::sleep_for(5ms);
    } while (std::chrono::steady_clock::now() < end);
    return false;
}

VirtualKeyboard::VirtualKeyboard(std::string name, std::vector<unsigned> keys)
    : m_name(std::move(name))
    , m_keys(std::move(keys))
{
    plug();
}

VirtualKeyboard::~VirtualKeyboard()
{
    unplug();
}

void VirtualKeyboard::plug()
{
    if (m_device)
        return;
    libevdev* dev = libevdev_new();
    libevdev_set_name(dev, m_name.c_str());
    libevdev_set_id_bustype(dev, BUS_USB);
    libevdev_enable_event_type(dev, EV_KEY);
    for (unsigned key : m_keys)
        libevdev_enable_event_code(dev, EV_KEY, key, nullptr);
    libevdev_enable_event_type(dev, EV_MSC);
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

input_event VirtualKeyboard::event(unsigned type, unsigned code, int value)
{
    input_event e{};
    e.type = static_cast<unsigned short>(type);
    e.code = static_cast<unsigned short>(code);
    e.value = value;
    return e;
}

void VirtualKeyboard::frame(const std::vector<input_event>& events)
{
    std::vector<input_event> all = events;
    all.push_back(event(EV_SYN, SYN_REPORT, 0));
    const auto size = static_cast<ssize_t>(all.size() * sizeof(input_event));
    if (write(libevdev_uinput_get_fd(m_device), all.data(), static_cast<size_t>(size)) != size)
        throw std::runtime_error("cannot write to " + m_name);
}

Observer::Observer(const std::string& node)
{
    m_fd = open(node.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
    int clock = CLOCK_MONOTONIC;
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
        ssize_t n = ::read(m_fd, buffer, sizeof buffer);
        if (n > 0) {
            for (ssize_t i = 0; i < n / static_cast<ssize_t>(sizeof(input_event)); ++i) {
                events.push_back(buffer[i]);
                matched = matched || (untilCode && buffer[i].type == EV_KEY &&
                                      buffer[i].code == untilCode && buffer[i].value == untilValue);
            }
            // The frame that carried the awaited event ends with its SYN_REPORT.
            if (matched && events.back().type == EV_SYN)
                return events;
            continue;
        }
        if (n < 0 && errno != EAGAIN)
            return events; // the node went away
        const auto left =
            std::chrono::duration_cast<Millis>(end - std::chrono::steady_clock::now());
        if (left.count() <= 0)
            return events;
        pollfd p{m_fd, POLLIN, 0};
        poll(&p, 1, static_cast<int>(left.count()));
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
        int log = open(kLog, O_WRONLY | O_CREAT | O_APPEND, 0644);
        dup2(log, STDERR_FILENO);
        std::string socket = std::string("--socket=") + kSocket;
        execl(binary, binary, socket.c_str(), static_cast<char*>(nullptr));
        _exit(127);
    }
}

KeydProcess::~KeydProcess()
{
    stop();
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
    std::ifstream in(kLog);
    std::ostringstream text;
    text << in.rdbuf();
    return text.str();
}

Client::Client()
{
    const auto end = std::chrono::steady_clock::now() + 10s;
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::strcpy(address.sun_path, kSocket);
    for (;;) {
        m_fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
        if (connect(m_fd, reinterpret_cast<sockaddr*>(&address), sizeof address) == 0)
            break;
        ::close(m_fd);
        m_fd = -1;
        if (std::chrono::steady_clock::now() > end)
            throw std::runtime_error("cannot connect to the service");
        std::this_thread::sleep_for(10ms);
    }
    fcntl(m_fd, F_SETFL, O_NONBLOCK);
    const auto until = std::chrono::steady_clock::now() + 5s;
    while (!hello && !hungUp && std::chrono::steady_clock::now() < until)
        pump(100ms);
}

Client::~Client()
{
    if (m_fd >= 0)
        ::close(m_fd);
}

void Client::send(const keyd::ClientMessage& message)
{
    const keyd::Record record = keyd::encode(message);
    if (::send(m_fd, record.data(), record.size(), MSG_NOSIGNAL) != 8)
        throw std::runtime_error("cannot send to the service");
}

void Client::pump(Millis timeout, std::size_t count)
{
    const auto end = std::chrono::steady_clock::now() + timeout;
    while (m_fd >= 0 && !hungUp && reports.size() < count) {
        std::uint8_t bytes[4096];
        ssize_t n = recv(m_fd, bytes, sizeof bytes, 0);
        if (n == 0 || (n < 0 && errno != EAGAIN)) {
            hungUp = true;
            return;
        }
        if (n > 0) {
            m_buffer.append(std::span(bytes, static_cast<std::size_t>(n)));
            while (auto record = m_buffer.take()) {
                auto message = keyd::decodeServiceMessage(*record);
                if (!message)
                    continue;
                if (auto* h = std::get_if<keyd::Hello>(&*message))
                    hello = *h;
                else if (auto* health = std::get_if<keyd::Health>(&*message))
                    this->health = health->devicesGrabbed;
                else if (auto* report = std::get_if<keyd::KeyReport>(&*message))
                    reports.push_back(*report);
            }
            continue;
        }
        const auto left =
            std::chrono::duration_cast<Millis>(end - std::chrono::steady_clock::now());
        if (left.count() <= 0)
            return;
        pollfd p{m_fd, POLLIN, 0};
        poll(&p, 1, static_cast<int>(left.count()));
    }
}

bool Client::waitForHealth(int devices, Millis timeout)
{
    const auto end = std::chrono::steady_clock::now() + timeout;
    while (health != devices && !hungUp && std::chrono::steady_clock::now() < end)
        pump(50ms);
    return health == devices;
}

} // namespace guest
