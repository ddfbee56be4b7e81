// How long discovery takes, after its listening window, to turn the hosts that answered
// into the sorted list of speakers, over several sweeps: for the 32-player household, and
// for the 40-player one whose players refuse GetZoneGroupState, so that the topology comes
// from each household's topology event. The window itself is the caller's choice and is
// not counted.
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

// Sweeps the household in `file` several times; false when not every player was found.
bool sweep(const char* name, int players, const char* topologyWhat)
{
    emulator::EmulatorThread household;
    const QString file = QStringLiteral(EMULATOR_HOUSEHOLDS "/%1.json").arg(QLatin1String(name));
    if (const auto error = household.start(file, 1400, true)) {
        std::fprintf(stderr, "emulator: %s\n", qPrintable(*error));
        return false;
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

    std::printf("%s: %d hosts answered, %d described, %d visible; window %lld ms\n", name, hosts,
                zones, visible, static_cast<long long>(window.count()));
    std::printf("first sweep (new connections): end of window to sorted list %.2f ms\n",
                describe.front());
    report("end of window to sorted list", describe);
    report(topologyWhat, topology);
    return hosts == players && zones == players;
}

} // namespace

int main(int argc, char** argv)
{
    // Log lines go to a folder of their own, not the user's log.
    std::setvbuf(stdout, nullptr, _IOLBF, 0);
    QTemporaryDir state;
    qputenv("XDG_STATE_HOME", state.path().toUtf8());
    QCoreApplication app(argc, argv);

    const bool all = sweep("household-32", 32, "satellites hidden (GetZoneGroupState)");
    std::printf("\n");
    const bool refusing = sweep("household-40", 40, "satellites hidden (topology event)");
    return all && refusing ? 0 : 1;
}
