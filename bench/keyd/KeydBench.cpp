// Pass-through delay and resident memory of the real key service, on the test machine's
// kernel (run by bench/keyd/run): each key event is written into a virtual keyboard and read
// back from the clone, whose kernel time stamp ends the measurement.

#include "GuestRig.h"
#include "keyd/Device.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <exception>
#include <fstream>
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
    Client client;
    VirtualKeyboard keyboard("keyd-bench keyboard", {KEY_A, KEY_VOLUMEUP});
    if (!client.waitForHealth(base + 1, 5000ms)) {
        std::fprintf(stderr, "keyd bench: the keyboard was never grabbed\n");
        return 1;
    }
    Observer clone(waitForNode(keyd::kClonePrefix + keyboard.name(), 3000ms));
    std::vector<std::int64_t> delays;
    for (int i = 0; i < 1000; ++i) {
        const int value = i % 2 == 0 ? 1 : 0;
        const std::int64_t written = monotonicNs();
        keyboard.key(KEY_A, value);
        const auto out = clone.read(5000ms, KEY_A, value);
        if (out.empty()) {
            std::fprintf(stderr, "keyd bench: event %d never came out of the clone\n", i);
            return 1;
        }
        delays.push_back(stampNs(out.front()) - written);
    }
    std::printf("keyd bench: pass-through delay median %lld us, p99 %lld us over %zu events "
                "(write into the keyboard to the clone's kernel time stamp, emulated CPU); "
                "resident memory %ld kB\n",
                static_cast<long long>(percentile(delays, 0.5) / 1000),
                static_cast<long long>(percentile(delays, 0.99) / 1000), delays.size(),
                residentKb(keyd.pid()));
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
