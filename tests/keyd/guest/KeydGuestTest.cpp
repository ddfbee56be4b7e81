// The real service on a real kernel, inside the test machine (tests/keyd/run-in-qemu), as root:
// keyboards made with uinput in, their clones read as the desktop would, a client on the
// socket. The routing rules are shown on the host (KeyRouterTest, DeviceSetTest); this shows
// the kernel's side of them: whole bursts read, grabs, clones, the keys-down query, hot-plug.

#include "../FedInput.h"
#include "keyd/Device.h"
#include "keyservice/Protocol.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <csignal>
#include <cstring>
#include <dirent.h>
#include <fcntl.h>
#include <fstream>
#include <functional>
#include <iostream>
#include <libevdev/libevdev-uinput.h>
#include <map>
#include <poll.h>
#include <random>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

using namespace std::chrono_literals;
using fed::event;
using fed::keyFrames;
using fed::triples;
using keyd::KeyReport;
using keyd::MediaKey;

namespace {

using Millis = std::chrono::milliseconds;
constexpr const char* kSocket = "/run/keyd-guest-test.sock";
constexpr const char* kLog = "/tmp/keyd-guest-test.log";
constexpr int kMarker = KEY_F24; // ends every burst, so the test knows the burst is through

int millisLeft(std::chrono::steady_clock::time_point end)
{
    const auto left = std::chrono::duration_cast<Millis>(end - std::chrono::steady_clock::now());
    return static_cast<int>(std::max<long long>(0, left.count()));
}

bool waitUntil(const std::function<bool()>& done, Millis timeout)
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
std::string nodeOf(const std::string& name)
{
    DIR* dir = opendir("/sys/class/input");
    std::string found;
    while (dirent* entry = dir ? readdir(dir) : nullptr) {
        const std::string sys = entry->d_name;
        std::string line;
        std::getline(std::ifstream("/sys/class/input/" + sys + "/device/name"), line);
        if (sys.starts_with("event") && line == name)
            found = "/dev/input/" + sys;
    }
    if (dir)
        closedir(dir);
    return found;
}

std::string waitForNode(const std::string& name)
{
    std::string node;
    waitUntil([&] { return !(node = nodeOf(name)).empty() && access(node.c_str(), R_OK) == 0; },
              3000ms);
    return node;
}

class VirtualKeyboard {
public:
    explicit VirtualKeyboard(std::string name)
        : name(std::move(name))
    {
    }
    ~VirtualKeyboard() { unplug(); }

    void plug()
    {
        libevdev* dev = libevdev_new();
        libevdev_set_name(dev, name.c_str());
        libevdev_set_id_bustype(dev, BUS_USB);
        for (unsigned key :
             {KEY_A, KEY_B, KEY_C, KEY_LEFTSHIFT, KEY_VOLUMEUP, KEY_VOLUMEDOWN, KEY_MUTE, kMarker})
            libevdev_enable_event_code(dev, EV_KEY, key, nullptr);
        libevdev_enable_event_code(dev, EV_MSC, MSC_SCAN, nullptr);
        // No EV_REP: the kernel would add repeats of its own to what the test writes.
        int rc = libevdev_uinput_create_from_device(dev, LIBEVDEV_UINPUT_OPEN_MANAGED, &m_device);
        libevdev_free(dev);
        ASSERT_EQ(rc, 0) << "cannot create " << name << ": " << std::strerror(-rc);
        node = waitForNode(name);
    }
    void unplug()
    {
        if (m_device)
            libevdev_uinput_destroy(m_device);
        m_device = nullptr;
    }
    // Whole frames in one write, so that the service finds them queued together.
    void write(const std::vector<input_event>& events)
    {
        const auto size = events.size() * sizeof(input_event);
        ASSERT_EQ(::write(libevdev_uinput_get_fd(m_device), events.data(), size), ssize_t(size));
    }
    void key(unsigned code, int value) { write(keyFrames({{code, value}})); }

    const std::string name;
    std::string node;

private:
    libevdev_uinput* m_device = nullptr;
};

// Reads a node as a desktop client would (not grabbing).
class Observer {
public:
    explicit Observer(const std::string& node)
        : m_fd(open(node.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC))
    {
    }
    ~Observer()
    {
        if (m_fd >= 0)
            close(m_fd);
    }
    bool isOpen() const { return m_fd >= 0; }

    // Everything readable within `timeout`, or up to the end of the frame that carried the
    // key event `untilCode`/`untilValue`.
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
            if (matched && events.back().type == EV_SYN)
                return events;
            pollfd p{m_fd, POLLIN, 0};
            if ((n < 0 && errno != EAGAIN) || (n <= 0 && poll(&p, 1, millisLeft(end)) <= 0))
                return events; // the node went away, or the time is up
        }
    }
    // Whether the kernel says no key is down on this node.
    bool noKeyHeld() const
    {
        unsigned char bits[KEY_CNT / 8 + 1] = {};
        return ioctl(m_fd, EVIOCGKEY(sizeof bits), bits) >= 0 &&
               std::all_of(std::begin(bits), std::end(bits), [](unsigned char b) { return !b; });
    }

private:
    int m_fd = -1;
};

class KeydGuest : public ::testing::Test {
protected:
    void SetUp() override
    {
        unlink(kLog);
        ASSERT_NO_FATAL_FAILURE(start());
        ASSERT_NO_FATAL_FAILURE(keyboard.plug());
        ASSERT_TRUE(waitForHealth(base + 1));
        ASSERT_NO_FATAL_FAILURE(openClone());
    }
    void TearDown() override
    {
        if (keyd > 0)
            stop();
        close(socketFd);
        if (HasFailure())
            std::cerr << "--- service log ---\n" << std::ifstream(kLog).rdbuf() << "---\n";
    }

    // Starts the service. The devices it holds before the test keyboard (the test machine's
    // own keyboard) are counted once, from its first greeting.
    void start()
    {
        keyd = fork();
        if (keyd == 0) {
            dup2(open(kLog, O_WRONLY | O_CREAT | O_APPEND, 0644), STDERR_FILENO);
            const std::string socket = std::string("--socket=") + kSocket;
            execl(std::getenv("KEYD_BIN"), "velotide-keyd", socket.c_str(), nullptr);
            _exit(127);
        }
        close(socketFd);
        socketFd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        std::strcpy(address.sun_path, kSocket);
        const auto listening = [&] {
            return connect(socketFd, reinterpret_cast<sockaddr*>(&address), sizeof address) == 0;
        };
        ASSERT_TRUE(waitUntil(listening, 10s));
        health = -1;
        ASSERT_TRUE(pumpUntil([&] { return accepted && health >= 0; }, 5s));
        if (base < 0)
            base = health;
    }
    void send(const keyd::ClientMessage& message)
    {
        const keyd::Record record = keyd::encode(message);
        ASSERT_EQ(::send(socketFd, record.data(), record.size(), MSG_NOSIGNAL), 8);
    }
    // Reads the service's messages until `done` holds or `timeout` passes; answers whether it
    // held.
    bool pumpUntil(const std::function<bool()>& done, Millis timeout)
    {
        const auto end = std::chrono::steady_clock::now() + timeout;
        while (!done()) {
            pollfd p{socketFd, POLLIN, 0};
            keyd::Record record;
            // The service writes whole records: one that is readable at all is there whole.
            if (poll(&p, 1, millisLeft(end)) <= 0 ||
                recv(socketFd, record.data(), record.size(), MSG_WAITALL) != 8)
                return false;
            const auto message = keyd::decodeServiceMessage(record);
            if (!message)
                continue;
            if (const auto* hello = std::get_if<keyd::Hello>(&*message))
                accepted = hello->status == keyd::HelloStatus::accepted;
            else if (const auto* state = std::get_if<keyd::Health>(&*message))
                health = state->devicesGrabbed;
            else if (const auto* report = std::get_if<KeyReport>(&*message))
                reports.push_back(*report);
        }
        return true;
    }
    bool waitForHealth(int devices)
    {
        return pumpUntil([&] { return health == devices; }, 5s);
    }
    // Sends SIGTERM and waits; returns the exit status.
    int stop()
    {
        kill(keyd, SIGTERM);
        int status = 0;
        waitpid(keyd, &status, 0);
        keyd = -1;
        return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
    }
    // Opens the keyboard's clone, which the desktop reads instead of the keyboard.
    void openClone()
    {
        clone = std::make_unique<Observer>(waitForNode(keyd::kClonePrefix + keyboard.name));
        ASSERT_TRUE(clone->isOpen());
    }
    // Writes the burst end marker and reads the clone until it came out.
    std::vector<fed::Triple> throughMarker()
    {
        keyboard.key(kMarker, 1);
        keyboard.key(kMarker, 0);
        return triples(clone->read(5000ms, kMarker, 0));
    }
    static std::vector<fed::Triple> frames(std::initializer_list<std::pair<unsigned, int>> keys)
    {
        return triples(keyFrames(keys));
    }
    // What the clone must give for a burst of these frames.
    static std::vector<fed::Triple> withMarker(std::vector<input_event> frames)
    {
        for (const input_event& e : keyFrames({{kMarker, 1}, {kMarker, 0}}))
            frames.push_back(e);
        return triples(frames);
    }

    int base = -1;
    pid_t keyd = -1;
    int socketFd = -1;
    bool accepted = false;
    int health = -1;
    std::vector<KeyReport> reports;
    VirtualKeyboard keyboard{"keyd-test keyboard"};
    std::unique_ptr<Observer> clone;
};

// Random bursts of keys, scan codes and repeats, with the arming changing between them: the
// clone gives what went in minus the volume presses begun while armed, which the client gets.
TEST_F(KeydGuest, randomStreamComesOutUnchangedMinusExactlyTheSwallowedKeys)
{
    const char* wanted = std::getenv("KEYD_STREAM_EVENTS");
    const int total = wanted && *wanted ? std::atoi(wanted) : 100000;
    Observer device(keyboard.node);
    std::mt19937 random(20261123);
    const unsigned keys[] = {KEY_A, KEY_B, KEY_C, KEY_LEFTSHIFT, KEY_VOLUMEUP, KEY_VOLUMEDOWN};
    std::map<unsigned, bool> held, swallowed;
    std::vector<KeyReport> expected;
    bool armed = false;
    for (int written = 0, burst = 0; written < total; ++burst) {
        if (random() % 8 == 0) {
            // The arming travels on another descriptor than the keys: Mute, kept out of the
            // stream, probes until it took effect.
            armed = !armed;
            send(keyd::SetArmed{armed});
            bool probeSwallowed = !armed;
            for (int attempt = 0; attempt < 50 && probeSwallowed != armed; ++attempt) {
                const auto probe = keyFrames({{KEY_MUTE, 1}, {KEY_MUTE, 0}});
                keyboard.write(probe);
                const auto out = throughMarker();
                probeSwallowed = out == withMarker({});
                ASSERT_TRUE(probeSwallowed || out == withMarker(probe)) << "a probe press split";
                if (probeSwallowed)
                    expected.push_back({MediaKey::mute, false, false});
            }
            ASSERT_EQ(probeSwallowed, armed) << "the arming never took effect";
        }
        std::vector<input_event> passed;
        for (int frames = 1 + int(random() % 6); frames > 0 && written < total; --frames) {
            const unsigned code = keys[random() % 6];
            const int value = held[code] ? (random() % 3 == 0 ? 2 : 0) : 1;
            held[code] = value != 0;
            std::vector<input_event> frame{event(EV_KEY, code, value),
                                           event(EV_SYN, SYN_REPORT, 0)};
            if (random() % 2)
                frame.insert(frame.begin(), event(EV_MSC, MSC_SCAN, int(0x70000 + code)));
            keyboard.write(frame);
            ++written;
            if (const auto key = keyd::mediaKeyOf(code)) {
                if (value == 1)
                    swallowed[code] = armed;
                if (swallowed[code] && armed && value != 0)
                    expected.push_back({*key, false, value == 2});
                if (swallowed[code])
                    frame.erase(frame.end() - 2);
            }
            if (frame.size() > 1) // a frame left with nothing in it is not passed on
                passed.insert(passed.end(), frame.begin(), frame.end());
        }
        ASSERT_EQ(throughMarker(), withMarker(passed))
            << "burst " << burst << " after " << written << " events, armed " << armed;
        pumpUntil([] { return false; }, 0ms); // keeps its socket from filling up
    }
    pumpUntil([&] { return reports.size() >= expected.size(); }, 5s);
    // Shift is in the stream too, and its state when the service reads a key is not the test's
    // to predict within a burst: fine steps are shown on the host.
    for (KeyReport& report : reports)
        report.fine = false;
    EXPECT_EQ(reports, expected);
    EXPECT_TRUE(device.read(0ms).empty()) << "the desktop read the grabbed device directly";
}

TEST_F(KeydGuest, heldKeysSurviveUnplugStopAndRestartAndTheNextGrabWaitsForTheirRelease)
{
    keyboard.key(KEY_A, 1); // unplugged with a key down
    keyboard.unplug();
    ASSERT_TRUE(waitForHealth(base));
    EXPECT_TRUE(waitUntil([&] { return nodeOf(keyd::kClonePrefix + keyboard.name).empty(); }, 3s))
        << "the clone outlived its keyboard";
    ASSERT_NO_FATAL_FAILURE(keyboard.plug());
    ASSERT_TRUE(waitForHealth(base + 1)) << "not taken back without a restart";
    ASSERT_NO_FATAL_FAILURE(openClone());
    keyboard.key(KEY_A, 1);
    ASSERT_EQ(triples(clone->read(3s, KEY_A, 1)), frames({{KEY_A, 1}}));

    EXPECT_EQ(stop(), 0);
    // The clone goes away with the key down; a reader learns it from the hang-up and drops the
    // clone's keys with it, as libinput and the X server do. The desktop then reads the
    // keyboard itself.
    EXPECT_TRUE(waitUntil([&] { return nodeOf(keyd::kClonePrefix + keyboard.name).empty(); }, 3s));
    Observer device(keyboard.node);
    keyboard.write(keyFrames({{KEY_B, 1}, {KEY_B, 0}}));
    EXPECT_EQ(triples(device.read(2s, KEY_B, 0)), frames({{KEY_B, 1}, {KEY_B, 0}}))
        << "still grabbed";

    // A service that finds the key still held leaves the keyboard to the desktop meanwhile.
    ASSERT_NO_FATAL_FAILURE(start());
    ASSERT_NO_FATAL_FAILURE(openClone());
    pumpUntil([] { return false; }, 500ms);
    EXPECT_EQ(health, base) << "grabbed while a key was held";
    keyboard.write(keyFrames({{KEY_B, 1}, {KEY_B, 0}}));
    EXPECT_EQ(triples(device.read(2s, KEY_B, 0)), frames({{KEY_B, 1}, {KEY_B, 0}}));
    keyboard.key(KEY_A, 0);
    EXPECT_EQ(triples(device.read(2s, KEY_A, 0)), frames({{KEY_A, 0}}))
        << "the desktop must see the release of the key it saw go down";

    ASSERT_TRUE(waitForHealth(base + 1));
    keyboard.write(keyFrames({{KEY_C, 1}, {KEY_C, 0}}));
    EXPECT_EQ(throughMarker(), withMarker(keyFrames({{KEY_C, 1}, {KEY_C, 0}})))
        << "the clone must not repeat what the desktop already had";
    EXPECT_TRUE(device.read(200ms).empty());
    EXPECT_TRUE(device.noKeyHeld());
    EXPECT_TRUE(clone->noKeyHeld());
}

} // namespace
