// How long a read of the live copy of the sound server's outputs takes: what a key press
// pays to learn whether the trigger output is playing. Run under
// tests/audio/with-pulseaudio (bench/audio/run does so); 12 more sinks join the 8 of
// the test server, so the copy holds 20.
#include "audio/PulseAudio.h"

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QProcess>

#include <atomic>
#include <cstdio>
#include <thread>
#include <vector>

namespace {

bool pactl(const QStringList& args)
{
    QProcess p;
    p.start(QStringLiteral("pactl"), args);
    return p.waitForFinished() && p.exitCode() == 0;
}

template <typename F>
double nanosecondsPerCall(int calls, F f)
{
    QElapsedTimer timer;
    timer.start();
    for (int i = 0; i < calls; ++i)
        f();
    return double(timer.nsecsElapsed()) / calls;
}

bool waitUntil(const std::function<bool()>& done)
{
    QElapsedTimer timer;
    timer.start();
    while (!done()) {
        if (timer.hasExpired(10000))
            return false;
        QCoreApplication::processEvents(QEventLoop::AllEvents, 5);
    }
    return true;
}

} // namespace

int main(int argc, char** argv)
{
    QCoreApplication app(argc, argv);
    for (int i = 0; i < 12; ++i) {
        pactl({QStringLiteral("load-module"), QStringLiteral("module-null-sink"),
               QStringLiteral("sink_name=bench_%1 sink_properties='device.description=\"Bench "
                              "Output %1\" device.class=sound device.bus=pci'")
                   .arg(i)});
    }

    PulseAudio device;
    if (!waitUntil([&] { return device.outputs().size() >= 20; })) {
        std::fprintf(stderr, "bench_audio: no sound server with 20 sinks (run bench/audio/run)\n");
        return 1;
    }
    std::printf("outputs in the copy: %lld\n", static_cast<long long>(device.outputs().size()));

    constexpr int calls = 1'000'000;
    volatile qsizetype sink = 0;
    const double decide = nanosecondsPerCall(calls, [&] {
        sink = sink + device.detectTriggerOutput().value_or(QString()).size() +
               device.defaultOutputName().value_or(QString()).size();
    });
    std::printf("detectTriggerOutput() + defaultOutputName(): %.0f ns per call\n", decide);
    const double read =
        nanosecondsPerCall(calls, [&] { sink = sink + device.state().outputs.size(); });
    std::printf("state(): %.0f ns per call\n", read);

    // The same read while two other threads read too and the server keeps changing.
    std::atomic<bool> done = false;
    std::vector<std::thread> others;
    for (int t = 0; t < 2; ++t) {
        others.emplace_back([&] {
            while (!done)
                sink = sink + device.state().outputs.size();
        });
    }
    std::thread churn([&] {
        for (int i = 0; !done; ++i)
            pactl({QStringLiteral("set-default-sink"), QStringLiteral("bench_%1").arg(i % 12)});
    });
    const double contended = nanosecondsPerCall(calls / 4, [&] {
        sink = sink + device.detectTriggerOutput().value_or(QString()).size() +
               device.defaultOutputName().value_or(QString()).size();
    });
    done = true;
    for (auto& t : others)
        t.join();
    churn.join();
    std::printf("the same with two other readers and a changing server: %.0f ns per call\n",
                contended);

    // How soon a change on the server reaches the copy.
    QElapsedTimer timer;
    timer.start();
    pactl({QStringLiteral("set-default-sink"), QStringLiteral("velotide_test_null")});
    waitUntil([&] { return device.defaultOutputName() == QStringLiteral("Dummy Output"); });
    std::printf("a default change reaches the copy (pactl included): %.1f ms\n",
                double(timer.nsecsElapsed()) / 1e6);
    return 0;
}
