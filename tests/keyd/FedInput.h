#pragma once

// Input devices fed by the test and clones that keep every frame written to them, behind the
// service's own InputBackend, so that the device handling runs on any host.

#include "keyd/Input.h"

#include <deque>
#include <map>
#include <tuple>

namespace fed {

inline input_event event(unsigned short type, unsigned short code, int value)
{
    return input_event{{}, type, code, value};
}

// Key events, each in a frame of its own as a keyboard sends them.
inline std::vector<input_event> keyFrames(std::initializer_list<std::pair<unsigned, int>> keys)
{
    std::vector<input_event> out;
    for (auto [code, value] : keys)
        out.insert(out.end(), {event(EV_KEY, code, value), event(EV_SYN, SYN_REPORT, 0)});
    return out;
}

// Events without their time stamps, for comparing.
using Triple = std::tuple<int, int, int>;
inline std::vector<Triple> triples(const std::vector<input_event>& events)
{
    std::vector<Triple> out;
    for (const input_event& e : events)
        out.emplace_back(e.type, e.code, e.value);
    return out;
}

// One device as the kernel holds it: the events waiting to be read, the keys down, the grab.
struct Hardware {
    keyd::DeviceCaps caps;
    std::deque<std::pair<input_event, bool>> queue; // (event, read in a resync)
    std::bitset<KEY_CNT> down;
    bool grabbed = false;
    bool plugged = true;
    bool failRead = false;
    std::vector<input_event> requests;    // LED and sound requests handed to the device
    std::vector<input_event> cloneFrames; // everything written to its clone
    std::deque<input_event> toClone;      // what the desktop writes to the clone
    bool cloned = false;

    // A key event and its SYN_REPORT, as a keyboard sends them.
    void key(unsigned code, int value)
    {
        down[code] = value != 0;
        queue.emplace_back(event(EV_KEY, code, value), false);
        queue.emplace_back(event(EV_SYN, SYN_REPORT, 0), false);
    }
    // The kernel's buffer overflowed: what is still queued is lost, a SYN_DROPPED is read,
    // then the keys whose state differs from what was read come as resync events.
    void overflow(const std::vector<std::pair<unsigned, int>>& changes)
    {
        queue.clear();
        queue.emplace_back(event(EV_SYN, SYN_DROPPED, 0), false);
        for (auto [code, value] : changes) {
            down[code] = value != 0;
            queue.emplace_back(event(EV_KEY, code, value), true);
        }
        queue.emplace_back(event(EV_SYN, SYN_REPORT, 0), true);
    }
};

class RecordingClone final : public keyd::Clone {
public:
    explicit RecordingClone(Hardware& hw)
        : m_hw(hw)
    {
        m_hw.cloned = true;
    }
    ~RecordingClone() override { m_hw.cloned = false; }
    Expected<Done, keyd::DeviceError> write(const std::vector<input_event>& events) override
    {
        m_hw.cloneFrames.insert(m_hw.cloneFrames.end(), events.begin(), events.end());
        return Done{};
    }
    Expected<std::optional<input_event>, keyd::DeviceError> read() override
    {
        if (m_hw.toClone.empty())
            return std::optional<input_event>();
        const input_event e = m_hw.toClone.front();
        m_hw.toClone.pop_front();
        return std::optional<input_event>(e);
    }
    int fd() const override { return -1; }
    std::string syspath() const override { return "/sys/devices/virtual/input/clone"; }
    std::string node() const override { return {}; }

private:
    Hardware& m_hw;
};

class FedDevice final : public keyd::InputDevice {
public:
    explicit FedDevice(Hardware& hw)
        : m_hw(hw)
    {
    }
    keyd::DeviceCaps caps() const override { return m_hw.caps; }
    int fd() const override { return -1; }
    Expected<Read, keyd::DeviceError> next(bool resyncing, input_event& event) override
    {
        if (m_hw.failRead)
            return keyd::DeviceError{"cannot read " + m_hw.caps.name + ": No such device"};
        if (m_hw.queue.empty() || m_hw.queue.front().second != resyncing)
            return Read::again;
        event = m_hw.queue.front().first;
        m_hw.queue.pop_front();
        return resyncing || event.code == SYN_DROPPED ? Read::sync : Read::event;
    }
    bool grab(bool on) override
    {
        m_hw.grabbed = on;
        return true;
    }
    std::optional<std::bitset<KEY_CNT>> keysDown() const override { return m_hw.down; }
    Expected<Done, keyd::DeviceError> write(const input_event& request) override
    {
        m_hw.requests.push_back(request);
        return Done{};
    }
    Expected<std::unique_ptr<keyd::Clone>, keyd::DeviceError>
    createClone(const std::string&) override
    {
        return std::unique_ptr<keyd::Clone>(std::make_unique<RecordingClone>(m_hw));
    }

private:
    Hardware& m_hw;
};

class Backend final : public keyd::InputBackend {
public:
    Expected<std::unique_ptr<keyd::InputDevice>, keyd::DeviceError>
    open(const std::string& node) override
    {
        auto it = devices.find(node);
        if (it == devices.end() || !it->second.plugged)
            return keyd::DeviceError{"cannot open " + node + ": No such file or directory"};
        return std::unique_ptr<keyd::InputDevice>(std::make_unique<FedDevice>(it->second));
    }
    bool exists(const std::string& node) const override
    {
        auto it = devices.find(node);
        return it != devices.end() && it->second.plugged;
    }

    std::map<std::string, Hardware> devices; // by node
};

} // namespace fed
