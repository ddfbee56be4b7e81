// The real program choosing a speaker's AirPlay route in its panel: emulated players, a private
// Avahi daemon announcing two receivers of the room's name, a private PulseAudio with a stream
// playing, a private X server and session bus, all started by the test's wrappers.
#include "AppProcess.h"
#include "common/Files.h"
#include "common/Wait.h"
#include "emulator/Emulator.h"

#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>
#include <QTemporaryDir>

#include <gtest/gtest.h>

#include <memory>
#include <vector>

using namespace std::chrono_literals;
using testing_support::spinUntil;
using testing_support::writeFile;

namespace {

QString pactl(const QStringList& arguments)
{
    QProcess p;
    p.start(QStringLiteral("pactl"), arguments);
    p.waitForFinished(10000);
    return QString::fromUtf8(p.readAllStandardOutput()).trimmed();
}

// The sink that plays to the receiver listening on `port`.
QString sinkForPort(int port)
{
    const QString wanted = QStringLiteral("device.string = \"[10.77.0.1]:%1\"").arg(port);
    for (const QString& block : pactl({"list", "sinks"}).split("Sink #", Qt::SkipEmptyParts)) {
        if (block.contains(wanted))
            return block.section(u'\n', 0, 0).trimmed();
    }
    return {};
}

bool atspi(const QStringList& arguments)
{
    QProcess process;
    process.start(QStringLiteral(ATSPI_TOOL), QStringList{"velotide"} + arguments);
    return process.waitForFinished(20000) && process.exitCode() == 0;
}

} // namespace

TEST(AirPlayRoute, ChoosingTheRoomsAirPlayRouteMovesTheSoundToItsOwnReceiver)
{
    emulator::EmulatorThread household;
    const auto error =
        household.start(QString::fromLocal8Bit(qgetenv("VELOTIDE_HOUSEHOLD")), 1400, true);
    ASSERT_FALSE(error.has_value()) << error->toStdString();

    // The Living Room player is RINCON_38420B91A2C401400; another receiver of the room's name
    // comes first in order.
    std::vector<std::unique_ptr<QProcess>> receivers;
    for (const auto& [instance, port] : {std::pair{"38420B91A2C3@Living Room", 7000},
                                         std::pair{"38420B91A2C4@Living Room", 7001}}) {
        auto& publisher = receivers.emplace_back(std::make_unique<QProcess>());
        publisher->setProcessChannelMode(QProcess::MergedChannels);
        publisher->start("avahi-publish", {"-s", instance, "_raop._tcp", QString::number(port),
                                           "tp=UDP", "et=0,1", "cn=0,1"});
        ASSERT_TRUE(spinUntil([&] { return publisher->readAll().contains("Established"); }, 10s));
    }
    QProcess stream;
    stream.setStandardInputFile(QStringLiteral("/dev/zero"));
    stream.start(QStringLiteral("pacat"));

    QTemporaryDir home;
    ASSERT_TRUE(writeFile(home.path() + "/config/velotide/settings.json",
                          QJsonDocument(QJsonObject{{"speaker", "Living Room"},
                                                    {"route", "network"},
                                                    {"triggerConfigured", true}})
                              .toJson()));
    AppProcess app(QString::fromLocal8Bit(qgetenv("VELOTIDE_BIN")), home.path());
    app.start();
    ASSERT_TRUE(app.waitForPrefix("Connected to Living Room")) << app.describe();
    ASSERT_TRUE(QProcess::execute("xdotool", {"mousemove", "12", "12", "click", "1"}) == 0);
    ASSERT_TRUE(atspi({"wait", "slider", "Volume"})) << app.describe();
    ASSERT_TRUE(atspi({"do", "Setup"}));
    // The choices come once the household and its receivers are browsed; the room's AirPlay
    // entry follows the room.
    ASSERT_TRUE(spinUntil(
        [] {
            QProcess dump;
            dump.start(QStringLiteral(ATSPI_TOOL), {"velotide", "dump"});
            dump.waitForFinished();
            return dump.readAll().contains("Living Room (home theatre) via AirPlay");
        },
        20s));
    ASSERT_TRUE(
        atspi({"do", "Which speaker the volume keys control, and how audio reaches it", "Press"}));
    ASSERT_TRUE(QProcess::execute("xdotool", {"key", "Down", "Return"}) == 0);

    EXPECT_TRUE(app.waitFor("'Living Room' is ambiguous (2 receivers) — trying the next one"))
        << app.describe();
    EXPECT_TRUE(app.waitFor("Routed audio to 'Living Room' on retry (now 'Living Room')"))
        << app.describe();
    const QString right = sinkForPort(7001);
    EXPECT_FALSE(right.isEmpty());
    EXPECT_TRUE(spinUntil(
        [&] {
            return pactl({"list", "short", "sink-inputs"}).section(u'\t', 1, 1) == right;
        },
        5s));
    EXPECT_EQ(app.stop(), 0);
    stream.kill();
    stream.waitForFinished();
}
