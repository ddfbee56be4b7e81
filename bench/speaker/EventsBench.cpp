// How quickly a change made elsewhere reaches the speaker controller through the speaker's
// event messages, and what following a speaker costs it.
// (a) A volume set on the emulated player "from elsewhere" until the controller holds it:
//     median and p99 over 200 changes (without events, up to the 5 s check).
// (b) Requests per minute the idle speaker receives, with a change from elsewhere every two
//     seconds, while events flow and while they do not.
#include "common/Wait.h"
#include "emulator/Emulator.h"
#include "speaker/SpeakerController.h"
#include "speaker/SpeakerEvents.h"

#include <QCoreApplication>
#include <QTemporaryDir>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <memory>
#include <vector>

using namespace std::chrono_literals;
using testing_support::spinFor;
using testing_support::spinUntil;

namespace {

const QString livingRoom = QStringLiteral("127.0.0.11");

qint64 steadyNs()
{
    return std::chrono::duration_cast<std::chrono::nanoseconds>(
               std::chrono::steady_clock::now().time_since_epoch())
        .count();
}

double percentile(std::vector<double> values, double p)
{
    std::sort(values.begin(), values.end());
    const size_t index = std::min(values.size() - 1, size_t(p * double(values.size() - 1) + 0.5));
    return values[index];
}

// (a): returns false if a change never arrived.
bool measureChangeToController(SpeakerController& speaker, emulator::EmulatorThread& players)
{
    constexpr int changes = 200;
    int awaited = -1;
    qint64 arrivedNs = 0;
    const QMetaObject::Connection watch =
        QObject::connect(&speaker, &SpeakerController::changed, [&] {
            if (speaker.snapshot().volume == awaited && arrivedNs == 0)
                arrivedNs = steadyNs();
        });
    std::vector<double> millis;
    for (int i = 0; i < changes; ++i) {
        awaited = 10 + i % 80;
        arrivedNs = 0;
        const qint64 start = steadyNs();
        players->setVolume(livingRoom, awaited);
        if (!spinUntil([&] { return arrivedNs != 0; }, 10s))
            return false;
        millis.push_back(double(arrivedNs - start) / 1e6);
        spinFor(5ms);
    }
    QObject::disconnect(watch);
    std::printf("change elsewhere -> controller's level (%d changes): median %.1f ms   p99 %.1f ms"
                "   max %.1f ms\n",
                changes, percentile(millis, 0.5), percentile(millis, 0.99),
                *std::max_element(millis.begin(), millis.end()));
    return true;
}

// (b): the requests the player received in `window`, per minute.
double requestsPerMinute(emulator::EmulatorThread& players, std::chrono::seconds window)
{
    players->clearRequests();
    const auto end = std::chrono::steady_clock::now() + window;
    int volume = 30;
    while (std::chrono::steady_clock::now() < end) {
        players->setVolume(livingRoom, volume = volume == 30 ? 31 : 30);
        spinFor(2s);
    }
    return double(players->requests(livingRoom).size()) * 60.0 / double(window.count());
}

} // namespace

int main(int argc, char** argv)
{
    std::setvbuf(stdout, nullptr, _IOLBF, 0);
    QTemporaryDir state; // the controller's log lines stay out of the user's log
    qputenv("XDG_STATE_HOME", state.path().toUtf8());
    QCoreApplication app(argc, argv);

    emulator::EmulatorThread players;
    if (const auto error =
            players.start(QStringLiteral(EMULATOR_HOUSEHOLDS "/home-theatre.json"), 1400, true)) {
        std::fprintf(stderr, "emulator: %s\n", qPrintable(*error));
        return 1;
    }

    SpeakerController speaker(QStringLiteral("Living Room"));
    speaker.setKnownHost(livingRoom);
    auto events = std::make_unique<SpeakerEvents>(speaker);
    speaker.startSupervision();
    if (!spinUntil([&] { return speaker.snapshot().connected && events->isFollowing(); })) {
        std::fprintf(stderr, "could not connect and subscribe\n");
        return 1;
    }

    const bool arrived = measureChangeToController(speaker, players);
    constexpr auto window = 30s;
    const double withEvents = requestsPerMinute(players, window);
    events.reset();
    spinFor(500ms);
    const double without = requestsPerMinute(players, window);
    std::printf("requests per minute to the idle speaker, a change elsewhere every 2 s: "
                "%.0f with events flowing, %.0f without events\n",
                withEvents, without);
    return arrived ? 0 : 1;
}
