// How long the program takes from launch to volume keys that work, against emulated players:
// to its start line, to the speaker's connection, to armed keys; and how long a key typed
// through XTEST takes to reach the player as SetVolume. Runs under bench/launch/run (a
// private network, sound server, X server and session bus).
#include "app/AppProcess.h"
#include "emulator/Emulator.h"

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QJsonDocument>
#include <QJsonObject>
#include <QTemporaryDir>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <vector>

using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;

namespace {

constexpr int kRuns = 7;
const QString livingRoom = QStringLiteral("127.0.0.11");
const QString digitalName = QStringLiteral("Built-in Audio Digital Stereo (IEC958)");

double msSince(Clock::time_point start)
{
    return std::chrono::duration<double, std::milli>(Clock::now() - start).count();
}

struct Figures {
    const char* name;
    std::vector<double> values;

    void print() const
    {
        if (values.empty()) {
            std::printf("  %-34s no samples\n", name);
            return;
        }
        std::vector<double> sorted = values;
        std::sort(sorted.begin(), sorted.end());
        std::printf("  %-34s median %8.1f ms   min %8.1f   max %8.1f   (n=%zu)\n", name,
                    sorted[sorted.size() / 2], sorted.front(), sorted.back(), sorted.size());
    }
};

bool writeSettings(const QString& home, bool knowsHost)
{
    QJsonObject settings{{"speaker", "Living Room"},
                         {"triggerOutput", digitalName},
                         {"triggerConfigured", true},
                         {"route", "optical"}};
    if (knowsHost)
        settings.insert(QStringLiteral("lastKnownHost"), livingRoom);
    QDir().mkpath(home + QStringLiteral("/config/velotide"));
    QFile file(home + QStringLiteral("/config/velotide/settings.json"));
    return file.open(QIODevice::WriteOnly) && file.write(QJsonDocument(settings).toJson()) > 0;
}

int setVolumeCount(const emulator::EmulatorThread& household)
{
    const QList<emulator::Request> requests = household->requests(livingRoom);
    return int(std::count_if(requests.begin(), requests.end(), [](const emulator::Request& r) {
        return r.action == QLatin1String("SetVolume");
    }));
}

qint64 lastSetVolumeNs(const emulator::EmulatorThread& household)
{
    qint64 last = 0;
    for (const emulator::Request& r : household->requests(livingRoom))
        if (r.action == QLatin1String("SetVolume"))
            last = r.receivedNs;
    return last;
}

// One launch: appends its figures; false when it did not get as far as armed keys.
bool measureLaunch(const emulator::EmulatorThread& household, bool knowsHost, Figures& toStart,
                   Figures& toConnected, Figures& toArmed, Figures& keyToSpeaker)
{
    QTemporaryDir home;
    if (!home.isValid() || !writeSettings(home.path(), knowsHost))
        return false;
    AppProcess app(QStringLiteral(VELOTIDE_BIN), home.path());
    const Clock::time_point launched = Clock::now();
    app.start();
    if (!app.waitForPrefix(QStringLiteral("Starting Velotide ")))
        return false;
    toStart.values.push_back(msSince(launched));
    if (!app.waitForPrefix(QStringLiteral("Connected to Living Room")))
        return false;
    toConnected.values.push_back(msSince(launched));
    if (!app.waitFor(QStringLiteral("volume keys armed")))
        return false;
    toArmed.values.push_back(msSince(launched));

    for (int press = 0; press < 3; ++press) {
        const int before = setVolumeCount(household);
        const qint64 pressedNs =
            std::chrono::duration_cast<std::chrono::nanoseconds>(Clock::now().time_since_epoch())
                .count();
        QProcess::execute(QStringLiteral("xdotool"),
                          {QStringLiteral("key"), QStringLiteral("XF86AudioRaiseVolume")});
        if (!testing_support::spinUntil([&] { return setVolumeCount(household) > before; }, 5s))
            return false;
        keyToSpeaker.values.push_back(double(lastSetVolumeNs(household) - pressedNs) / 1e6);
        testing_support::spinFor(100ms);
    }
    app.stop();
    return true;
}

} // namespace

int main(int argc, char** argv)
{
    QCoreApplication qapp(argc, argv);
    emulator::EmulatorThread household;
    if (const auto error = household.start(QStringLiteral(VELOTIDE_HOUSEHOLD), 1400, true)) {
        std::fprintf(stderr, "bench_launch: %s\n", qPrintable(*error));
        return 1;
    }
    QProcess::execute(QStringLiteral("pactl"),
                      {QStringLiteral("set-default-sink"),
                       QStringLiteral("alsa_output.pci-0000_00_1f.3.iec958-stereo")});

    std::printf("launch to working volume keys, emulated household, X11 key grab, %d runs each\n",
                kRuns);
    for (const bool knowsHost : {false, true}) {
        Figures toStart{"launch -> start line", {}};
        Figures toConnected{"launch -> speaker connected", {}};
        Figures toArmed{"launch -> keys armed", {}};
        Figures keyToSpeaker{"key typed -> SetVolume at player", {}};
        int failed = 0;
        for (int run = 0; run < kRuns; ++run)
            if (!measureLaunch(household, knowsHost, toStart, toConnected, toArmed, keyToSpeaker))
                ++failed;
        std::printf("%s\n", knowsHost ? "speaker's address remembered from the last run:"
                                      : "speaker found by discovery (no address remembered):");
        for (const Figures* f : {&toStart, &toConnected, &toArmed, &keyToSpeaker})
            f->print();
        if (failed > 0)
            std::printf("  %d run(s) did not reach armed keys\n", failed);
    }
    std::printf("(the key figure includes starting xdotool, a few milliseconds)\n");
    return 0;
}
