#pragma once

// The pieces of the real-kernel test: virtual keyboards made with uinput (the "hardware"),
// observers that read a device node as the desktop would, the service as a child process and
// a client on its socket. Runs as root inside the test machine.

#include "../FedInput.h"
#include "keyservice/Protocol.h"

#include <chrono>
#include <functional>
#include <string>
#include <sys/types.h>
#include <vector>

struct libevdev_uinput;

namespace guest {

using namespace std::chrono_literals;
using Millis = std::chrono::milliseconds;

// Polls `done` until it holds or `timeout` passes; answers whether it held.
bool waitUntil(const std::function<bool()>& done, Millis timeout);
// The node of the input device with this name; empty while there is none.
std::string nodeOf(const std::string& name);
// The node once it is there and readable; empty if it never comes within `timeout`.
std::string waitForNode(const std::string& name, Millis timeout);

class VirtualKeyboard {
public:
    VirtualKeyboard(std::string name, std::vector<unsigned> keys);
    ~VirtualKeyboard() { unplug(); }
    VirtualKeyboard(const VirtualKeyboard&) = delete;
    VirtualKeyboard& operator=(const VirtualKeyboard&) = delete;

    void plug();
    void unplug();
    // Writes the events and a SYN_REPORT in one go.
    void frame(const std::vector<input_event>& events);
    void key(unsigned code, int value) { frame({fed::event(EV_KEY, code, value)}); }
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

inline constexpr const char* kSocket = "/run/keyd-guest-test.sock";
inline constexpr const char* kLog = "/tmp/keyd-guest-test.log";

class KeydProcess {
public:
    KeydProcess();
    ~KeydProcess() { stop(); }
    KeydProcess(const KeydProcess&) = delete;
    KeydProcess& operator=(const KeydProcess&) = delete;

    // Sends SIGTERM and waits; returns the exit status.
    int stop();
    std::string log() const;
    pid_t pid() const { return m_pid; }

private:
    pid_t m_pid = -1;
};

class Client {
public:
    Client(); // connects, waiting for the socket, and reads the greeting
    ~Client();
    Client(const Client&) = delete;
    Client& operator=(const Client&) = delete;

    void send(const keyd::ClientMessage& message);
    // Reads messages until `done` holds or `timeout` passes; answers whether it held.
    // A timeout of zero reads only what is waiting.
    bool pumpUntil(const std::function<bool()>& done, Millis timeout);
    bool waitForHealth(int devices, Millis timeout)
    {
        return pumpUntil([&] { return health == devices; }, timeout);
    }

    std::optional<keyd::Hello> hello;
    int health = -1;
    std::vector<keyd::KeyReport> reports;

private:
    int m_fd = -1;
};

} // namespace guest
