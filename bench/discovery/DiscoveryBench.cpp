// How long discovery takes, after its listening window, to turn the hosts that answered
// into the sorted list of speakers: for the 32-player household, over several sweeps.
// The window itself is the caller's choice and is not counted.
#include "discovery/SonosDiscovery.h"
#include "discovery/SsdpSearch.h"
#include "discovery/ZoneTopology.h"
#include "emulator/Emulator.h"

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QTemporaryDir>

#include <algorithm>
#include <cstdio>
#include <vector>

namespace {

template <typename T>
T wait(const QFuture<T>& future)
{
    while (!future.isFinished())
        QCoreApplication::processEvents(QEventLoop::AllEvents, 5);
    return future.result();
}

double median(std::vector<double> values)
{
    std::sort(values.begin(), values.end());
    const size_t n = values.size();
    return n % 2 ? values[n / 2] : (values[n / 2 - 1] + values[n / 2]) / 2;
}

void report(const char* what, const std::vector<double>& ms)
{
    std::printf("%-44s median %7.2f ms   min %7.2f   max %7.2f   (n=%zu)\n", what, median(ms),
                *std::min_element(ms.begin(), ms.end()), *std::max_element(ms.begin(), ms.end()),
                ms.size());
}

} // namespace

int main(int argc, char** argv)
{
    // Log lines (none are expected) go to a folder of their own, not the user's log.
    std::setvbuf(stdout, nullptr, _IOLBF, 0);
    QTemporaryDir state;
    qputenv("XDG_STATE_HOME", state.path().toUtf8());
    QCoreApplication app(argc, argv);

    emulator::EmulatorThread players;
    if (const auto error =
            players.start(QStringLiteral(EMULATOR_HOUSEHOLDS "/household-32.json"), 1400, true)) {
        std::fprintf(stderr, "emulator: %s\n", qPrintable(*error));
        return 1;
    }

    constexpr int sweeps = 11;
    constexpr auto window = std::chrono::milliseconds(500);
    std::vector<double> describe;
    std::vector<double> topology;
    int hosts = 0;
    int zones = 0;
    int visible = 0;
    for (int i = 0; i < sweeps; ++i) {
        const SsdpSearch::Result found = wait(SsdpSearch::run(window));
        hosts = int(found.hosts.size());

        QElapsedTimer clock;
        clock.start();
        const QList<SonosDevice> devices = wait(SonosDiscovery::describeAll(found.hosts));
        describe.push_back(clock.nsecsElapsed() / 1e6);
        zones = int(devices.size());

        clock.restart();
        visible = int(wait(ZoneTopology::visible(devices)).size());
        topology.push_back(clock.nsecsElapsed() / 1e6);
    }

    std::printf("household-32: %d hosts answered, %d described, %d visible; window %lld ms\n",
                hosts, zones, visible, static_cast<long long>(window.count()));
    std::printf("first sweep (new connections): end of window to sorted list %.2f ms\n",
                describe.front());
    report("end of window to sorted list", describe);
    report("satellites hidden (GetZoneGroupState)", topology);
    return hosts == 32 && zones == 32 ? 0 : 1;
}
