// How quickly a volume change reaches the speaker, and how a burst of presses is coalesced.
// (a) From `apply` to the SetVolume request arriving at an emulated player, one press at a
//     time, each sent on its own.
// (b) Fifty presses 20 ms apart against a player that takes 150 ms to answer: how many
//     requests went out, and whether the last one carried the final value.
#include "common/Wait.h"
#include "emulator/Emulator.h"
#include "speaker/SpeakerController.h"

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QTemporaryDir>

#include <algorithm>
#include <chrono>
#include <cstdio>
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

QList<emulator::Request> setVolumes(emulator::EmulatorThread& players)
{
    QList<emulator::Request> sets;
    for (const emulator::Request& request : players->requests(livingRoom))
        if (request.action == QLatin1String("SetVolume"))
            sets.append(request);
    return sets;
}

double percentile(std::vector<double> values, double p)
{
    std::sort(values.begin(), values.end());
    const size_t index = std::min(values.size() - 1, size_t(p * double(values.size() - 1) + 0.5));
    return values[index];
}

// (a): returns false if a request never arrived.
bool measureApplyToRequest(SpeakerController& speaker, emulator::EmulatorThread& players)
{
    constexpr int presses = 1000;
    std::vector<double> micros;
    micros.reserve(presses);
    for (int i = 0; i < presses; ++i) {
        players->clearRequests();
        const int volume = 10 + i % 80;
        const qint64 start = steadyNs();
        speaker.apply(volume, false);
        if (!spinUntil([&] { return !setVolumes(players).isEmpty(); }))
            return false;
        micros.push_back(double(setVolumes(players).first().receivedNs - start) / 1000.0);
        // Let the answer come back, so that the next press starts a send of its own.
        if (!spinUntil([&] { return players->volume(livingRoom) == volume; }))
            return false;
        spinFor(2ms);
    }
    std::printf("apply -> SetVolume at the player (%d presses): median %.0f us   p99 %.0f us   "
                "max %.0f us\n",
                presses, percentile(micros, 0.5), percentile(micros, 0.99),
                *std::max_element(micros.begin(), micros.end()));
    return true;
}

// (b): returns false if the player did not end at the final value.
bool measureBurst(SpeakerController& speaker, emulator::EmulatorThread& players)
{
    constexpr int presses = 50;
    emulator::Fault slow;
    slow.kind = emulator::Fault::Kind::Delay;
    slow.only = QStringLiteral("SetVolume");
    slow.delayMs = 150;
    players->setFault(livingRoom, slow);
    spinFor(300ms);
    players->clearRequests();

    const int first = speaker.snapshot().volume >= 50 ? 0 : 50;
    QElapsedTimer clock;
    clock.start();
    for (int i = 1; i <= presses; ++i) {
        speaker.apply(first + i, false);
        spinFor(20ms);
    }
    const int final = first + presses;
    spinUntil([&] { return players->volume(livingRoom) == final; }, 3s);
    const qint64 settledMs = clock.elapsed();
    spinFor(500ms); // a stale send would show up here
    players->clearFaults();

    const QList<emulator::Request> sets = setVolumes(players);
    const bool lastIsFinal =
        !sets.isEmpty() && sets.last().argument("DesiredVolume").toInt() == final;
    std::printf("burst of %d presses 20 ms apart, player answering in 150 ms: %lld requests, "
                "last carried %s (final value %d), player settled after %lld ms\n",
                presses, static_cast<long long>(sets.size()),
                sets.isEmpty() ? "nothing" : qPrintable(sets.last().argument("DesiredVolume")),
                final, static_cast<long long>(settledMs));
    return lastIsFinal && players->volume(livingRoom) == final;
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
    speaker.startSupervision();
    if (!spinUntil([&] { return speaker.snapshot().connected; })) {
        std::fprintf(stderr, "could not connect: %s\n",
                     qPrintable(speaker.snapshot().problem
                                    ? speakerProblemText(*speaker.snapshot().problem)
                                    : QString()));
        return 1;
    }
    spinFor(200ms);

    const bool quick = measureApplyToRequest(speaker, players);
    const bool burst = measureBurst(speaker, players);
    return quick && burst ? 0 : 1;
}
