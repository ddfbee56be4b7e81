// How long the arming decision takes on the key path, and what its texts cost when the panel
// asks for them.
#include "app/KeyContext.h"

#include <chrono>
#include <cstdio>
#include <vector>

namespace {

std::vector<KeyContext> contexts()
{
    std::vector<KeyContext> all;
    for (int bits = 0; bits < 128; ++bits) {
        KeyContext context;
        context.paused = bits & 1;
        context.trusted = bits & 2;
        context.tapEnabled = bits & 4;
        context.triggerOutput = (bits & 8) ? QStringLiteral("Optical Out") : QString();
        context.triggerConfigured = bits & 16;
        if (bits & 32)
            context.currentOutput = QStringLiteral("Optical Out");
        context.speakerConnected = bits & 64;
        all.push_back(context);
    }
    return all;
}

template <typename F>
double nanosecondsPerCall(int rounds, const std::vector<KeyContext>& all, F&& call)
{
    const auto start = std::chrono::steady_clock::now();
    for (int round = 0; round < rounds; ++round) {
        for (const KeyContext& context : all)
            call(context);
    }
    const std::chrono::duration<double, std::nano> took = std::chrono::steady_clock::now() - start;
    return took.count() / (double(rounds) * double(all.size()));
}

} // namespace

int main()
{
    const std::vector<KeyContext> all = contexts();
    volatile int armed = 0;
    volatile qsizetype length = 0;

    const double evaluate = nanosecondsPerCall(20000, all, [&](const KeyContext& context) {
        armed = armed + context.evaluate().isArmed();
    });
    const double texts = nanosecondsPerCall(2000, all, [&](const KeyContext& context) {
        const ArmedState state = context.evaluate();
        length = length + state.reason().size() + state.panelMessage().size();
    });

    std::printf("contexts: %zu (every combination of the inputs)\n", all.size());
    std::printf("evaluate():                        %.1f ns per call\n", evaluate);
    std::printf("evaluate() + reason + panelMessage: %.1f ns per call\n", texts);
    return 0;
}
