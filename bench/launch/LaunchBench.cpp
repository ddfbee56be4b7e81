// How long the program takes from launch to volume keys that work, against emulated players:
// to its start line, to the speaker's connection, to armed keys; and how long a key typed
// through XTEST takes to reach the player as SetVolume; then the idle program's processor time
// over a minute (VELOTIDE_IDLE_SECONDS to change) and its resident memory. Runs under
// bench/launch/run (a private network, sound server, X server and session bus).
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
#include <unistd.h>
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

struct ProcessUse {
    double cpuSeconds = 0; // user and system time so far
    long rssKiB = 0;
    long peakRssKiB = 0;
};

// What /proc says the process has used so far; zeros when it cannot be read.
ProcessUse processUse(qint64 pid)
{
    ProcessUse use;
    QFile stat(QStringLiteral("/proc/%1/stat").arg(pid));
    if (stat.open(QIODevice::ReadOnly)) {
        // The command name may hold spaces; the fields after its closing parenthesis don't.
        const QByteArray line = stat.readAll();
        const QList<QByteArray> fields = line.mid(line.lastIndexOf(')') + 2).split(' ');
        if (fields.size() > 12) // utime and stime are the 14th and 15th fields of the line
            use.cpuSeconds = double(fields[11].toLongLong() + fields[12].toLongLong()) /
                             double(sysconf(_SC_CLK_TCK));
    }
    QFile status(QStringLiteral("/proc/%1/status").arg(pid));
    if (status.open(QIODevice::ReadOnly)) {
        for (const QByteArray& line : status.readAll().split('\n')) {
            const QList<QByteArray> parts = line.simplified().split(' ');
            if (parts.size() >= 2 && parts[0] == "VmRSS:")
                use.rssKiB = parts[1].toLong();
            if (parts.size() >= 2 && parts[0] == "VmHWM:")
                use.peakRssKiB = parts[1].toLong();
        }
    }
    return use;
}

// Launches once with the speaker's address remembered, lets the start settle, and then
// watches the idle program: the processor time it takes and the memory it holds.
bool measureIdle(std::chrono::seconds idle)
{
    QTemporaryDir home;
    if (!home.isValid() || !writeSettings(home.path(), true))
        return false;
    AppProcess app(QStringLiteral(VELOTIDE_BIN), home.path());
    app.start();
    if (!app.waitFor(QStringLiteral("volume keys armed")))
        return false;
    testing_support::spinFor(5s);
    const ProcessUse before = processUse(app.pid());
    testing_support::spinFor(idle);
    const ProcessUse after = processUse(app.pid());
    app.stop();
    const double seconds = double(idle.count());
    std::printf("idle for %.0f s after arming (health check every 5 s):\n", seconds);
    std::printf("  processor time %.3f s, %.3f %% of one core\n",
                after.cpuSeconds - before.cpuSeconds,
                100.0 * (after.cpuSeconds - before.cpuSeconds) / seconds);
    std::printf("  resident memory %ld KiB at the start, %ld KiB at the end, peak %ld KiB\n",
                before.rssKiB, after.rssKiB, after.peakRssKiB);
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

    const int idleSeconds = qEnvironmentVariableIntValue("VELOTIDE_IDLE_SECONDS");
    if (!measureIdle(std::chrono::seconds(idleSeconds > 0 ? idleSeconds : 60)))
        std::printf("idle: the program did not reach armed keys\n");
    return 0;
}
