#pragma once

// The pieces of the real-kernel test: virtual keyboards made with uinput (the "hardware"),
// observers that read a device node as the desktop would, the service as a child process and
// a client on its socket. Runs as root inside the test machine.

#include "keyservice/Protocol.h"

#include <chrono>
#include <cstdint>
#include <linux/input.h>
#include <string>
#include <sys/types.h>
#include <vector>

struct libevdev_uinput;

namespace guest {

using namespace std::chrono_literals;
using Millis = std::chrono::milliseconds;

// The node of the input device with this name, waiting up to `timeout` for it to appear;
// empty if it does not.
std::string waitForNode(const std::string& name, Millis timeout);
bool waitForNoNode(const std::string& name, Millis timeout);

class VirtualKeyboard {
public:
    VirtualKeyboard(std::string name, std::vector<unsigned> keys);
    ~VirtualKeyboard();
    VirtualKeyboard(const VirtualKeyboard&) = delete;
    VirtualKeyboard& operator=(const VirtualKeyboard&) = delete;

    void plug();
    void unplug();
    // Writes the events and a SYN_REPORT in one go.
    void frame(const std::vector<input_event>& events);
    void key(unsigned code, int value) { frame({event(EV_KEY, code, value)}); }
    const std::string& node() const { return m_node; }
    const std::string& name() const { return m_name; }

    static input_event event(unsigned type, unsigned code, int value);

private:
    std::string m_name;
    std::vector<unsigned> m_keys;
    libevdev_uinput* m_device = nullptr;
    std::string m_node;
};

// Reads a node as a desktop client would (not grabbing).
class Observer {
public:
    explicit Observer(const std::string& node);
    ~Observer();
    Observer(const Observer&) = delete;
    Observer& operator=(const Observer&) = delete;

    // Everything readable within `timeout` (returns early once `until` matched an event).
    std::vector<input_event> read(Millis timeout, unsigned untilCode = 0, int untilValue = -1);
    // Keys the kernel says are down on this node.
    std::vector<unsigned> heldKeys() const;
    bool isOpen() const { return m_fd >= 0; }

private:
    int m_fd = -1;
};

class KeydProcess {
public:
    KeydProcess();
    ~KeydProcess();
    KeydProcess(const KeydProcess&) = delete;
    KeydProcess& operator=(const KeydProcess&) = delete;

    // Sends SIGTERM and waits; returns the exit status.
    int stop();
    std::string log() const;
    pid_t pid() const { return m_pid; }

private:
    pid_t m_pid = -1;
};

inline constexpr const char* kSocket = "/run/keyd-guest-test.sock";
inline constexpr const char* kLog = "/tmp/keyd-guest-test.log";

class Client {
public:
    Client(); // connects, waiting for the socket
    ~Client();
    Client(const Client&) = delete;
    Client& operator=(const Client&) = delete;

    void send(const keyd::ClientMessage& message);
    // Reads what arrives within `timeout`; stops early once `count` key reports are waiting.
    void pump(Millis timeout, std::size_t count = SIZE_MAX);
    bool waitForHealth(int devices, Millis timeout);

    std::optional<keyd::Hello> hello;
    int health = -1;
    std::vector<keyd::KeyReport> reports;
    bool hungUp = false;

private:
    int m_fd = -1;
    keyd::RecordBuffer m_buffer;
};

} // namespace guest
