// Pass-through delay and resident memory of the real key service, on the test machine's
// kernel (run by bench/keyd/run): each key event is written into a virtual keyboard and read
// back from the clone, whose kernel time stamp ends the measurement. The delay is measured
// quiet, then while eight processes of another user connect to the service's socket in a
// loop, then while the connected client floods the service with messages.

#include "GuestRig.h"
#include "keyd/Device.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <exception>
#include <fstream>
#include <iterator>
#include <optional>
#include <string>
#include <unistd.h>

using namespace guest;

namespace {

std::int64_t monotonicNs()
{
    timespec now;
    clock_gettime(CLOCK_MONOTONIC, &now);
    return now.tv_sec * 1000000000LL + now.tv_nsec;
}

std::int64_t stampNs(const input_event& event)
{
    return event.input_event_sec * 1000000000LL + event.input_event_usec * 1000LL;
}

long residentKb(pid_t pid)
{
    std::ifstream in("/proc/" + std::to_string(pid) + "/status");
    std::string line;
    while (std::getline(in, line))
        if (line.rfind("VmRSS:", 0) == 0)
            return std::strtol(line.c_str() + 6, nullptr, 10);
    return -1;
}

std::int64_t percentile(std::vector<std::int64_t> values, double p)
{
    std::sort(values.begin(), values.end());
    return values[static_cast<std::size_t>(p * static_cast<double>(values.size() - 1))];
}

std::size_t lineCount(const char* path)
{
    std::ifstream in(path);
    return static_cast<std::size_t>(
        std::count(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>(), '\n'));
}

// Processor time the process has used, in milliseconds.
long cpuMs(pid_t pid)
{
    std::ifstream in("/proc/" + std::to_string(pid) + "/stat");
    std::string field;
    long ticks = 0;
    for (int i = 1; i <= 15 && in >> field; ++i)
        if (i == 14 || i == 15) // utime, stime
            ticks += std::strtol(field.c_str(), nullptr, 10);
    return ticks * 1000 / sysconf(_SC_CLK_TCK);
}

int connectToService()
{
    const int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::strcpy(address.sun_path, kSocket);
    if (connect(fd, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0) {
        close(fd);
        return -1;
    }
    return fd;
}

// Child processes doing `work` in a loop until they are stopped.
class Crowd {
public:
    Crowd(int count, const std::function<void()>& work)
    {
        for (int i = 0; i < count; ++i) {
            const pid_t pid = fork();
            if (pid == 0) {
                for (;;)
                    work();
            }
            m_pids.push_back(pid);
        }
    }
    ~Crowd()
    {
        for (pid_t pid : m_pids)
            kill(pid, SIGKILL);
        for (pid_t pid : m_pids)
            waitpid(pid, nullptr, 0);
    }

private:
    std::vector<pid_t> m_pids;
};

// Another user: refused at every connection, and connecting again at once.
void connectAsAnotherUser()
{
    static const bool dropped = setgid(65534) == 0 && setuid(65534) == 0;
    if (!dropped)
        _exit(1);
    const int fd = connectToService();
    if (fd >= 0) {
        keyd::Record hello;
        [[maybe_unused]] const ssize_t n = recv(fd, hello.data(), hello.size(), 0);
        close(fd);
    }
}

// The one accepted client, sending as fast as the service takes it.
void floodAsTheClient()
{
    static const int fd = connectToService();
    std::vector<std::uint8_t> burst;
    for (int i = 0; i < 512; ++i) {
        const keyd::Record record = keyd::encode(keyd::SetPointerButtons{false});
        burst.insert(burst.end(), record.begin(), record.end());
    }
    if (fd < 0 || send(fd, burst.data(), burst.size(), MSG_NOSIGNAL) < 0)
        _exit(1);
}

struct Delays {
    std::int64_t medianUs = 0;
    std::int64_t p99Us = 0;
};

std::optional<Delays> measure(VirtualKeyboard& keyboard, Observer& clone, int events)
{
    std::vector<std::int64_t> delays;
    for (int i = 0; i < events; ++i) {
        const int value = i % 2 == 0 ? 1 : 0;
        const std::int64_t written = monotonicNs();
        keyboard.key(KEY_A, value);
        const auto out = clone.read(5000ms, KEY_A, value);
        if (out.empty()) {
            std::fprintf(stderr, "keyd bench: event %d never came out of the clone\n", i);
            return std::nullopt;
        }
        delays.push_back(stampNs(out.front()) - written);
    }
    return Delays{percentile(delays, 0.5) / 1000, percentile(delays, 0.99) / 1000};
}

int run()
{
    unlink(kLog);
    int base = 0;
    {
        // The test machine's own keyboard is grabbed too; counted apart.
        KeydProcess keyd;
        Client client;
        base = client.health;
    }
    KeydProcess keyd;
    std::optional<Client> client(std::in_place);
    VirtualKeyboard keyboard("keyd-bench keyboard", {KEY_A, KEY_VOLUMEUP});
    if (!client->waitForHealth(base + 1, 5000ms)) {
        std::fprintf(stderr, "keyd bench: the keyboard was never grabbed\n");
        return 1;
    }
    Observer clone(waitForNode(keyd::kClonePrefix + keyboard.name(), 3000ms));
    const auto quiet = measure(keyboard, clone, 1000);
    if (!quiet)
        return 1;
    const long resident = residentKb(keyd.pid());

    const std::size_t linesBefore = lineCount(kLog);
    const auto started = std::chrono::steady_clock::now();
    std::optional<Delays> crowded;
    {
        Crowd crowd(8, connectAsAnotherUser);
        crowded = measure(keyboard, clone, 1000);
    }
    const auto crowdedFor = std::chrono::duration_cast<std::chrono::milliseconds>(
        std::chrono::steady_clock::now() - started);
    const std::size_t refusalLines = lineCount(kLog) - linesBefore;
    if (!crowded)
        return 1;
    const long cpuBefore = cpuMs(keyd.pid());
    std::this_thread::sleep_for(1s);
    const long idleCpu = cpuMs(keyd.pid()) - cpuBefore;

    client.reset(); // the flooding process becomes the client
    std::optional<Delays> flooded;
    {
        Crowd flood(1, floodAsTheClient);
        flooded = measure(keyboard, clone, 1000);
    }
    if (!flooded)
        return 1;

    std::printf("keyd bench: pass-through delay median %lld us, p99 %lld us over 1000 events "
                "(write into the keyboard to the clone's kernel time stamp, emulated CPU); "
                "resident memory %ld kB\n",
                static_cast<long long>(quiet->medianUs), static_cast<long long>(quiet->p99Us),
                resident);
    std::printf(
        "keyd bench: with 8 processes of another user connecting in a loop: median %lld "
        "us, p99 %lld us (%.2fx the quiet p99); %zu log lines in %lld ms; %ld ms of CPU in the "
        "second after\n",
        static_cast<long long>(crowded->medianUs), static_cast<long long>(crowded->p99Us),
        static_cast<double>(crowded->p99Us) / static_cast<double>(quiet->p99Us), refusalLines,
        static_cast<long long>(crowdedFor.count()), idleCpu);
    std::printf("keyd bench: with the connected client flooding the service: median %lld us, "
                "p99 %lld us (%.2fx the quiet p99)\n",
                static_cast<long long>(flooded->medianUs), static_cast<long long>(flooded->p99Us),
                static_cast<double>(flooded->p99Us) / static_cast<double>(quiet->p99Us));
    return 0;
}

} // namespace

int main()
{
    try {
        return run();
    } catch (const std::exception& error) {
        std::fprintf(stderr, "keyd bench: %s\n", error.what());
        return 1;
    }
}
