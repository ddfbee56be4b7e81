// The real `velotide --probe` against an emulated household over real multicast and HTTP in a
// private network namespace, a private sound server whose default output is S/PDIF, and (for
// input access) a key service socket of the test's own. Each run's standard output is compared
// line by line with the expected report of that arrangement.
#include "common/Files.h"
#include "common/QtPrinters.h"
#include "common/Wait.h"
#include "emulator/Emulator.h"

#include <QCryptographicHash>
#include <QDBusConnection>
#include <QDir>
#include <QDirIterator>
#include <QFile>
#include <QFileInfo>
#include <QLocalServer>
#include <QProcess>
#include <QRegularExpression>
#include <QTemporaryDir>

#include <gtest/gtest.h>

using testing_support::readFile;
using testing_support::writeFile;

namespace {

const QString kKitchen = QStringLiteral("127.0.0.15");
const QString kBedroom = QStringLiteral("127.0.0.17");

struct ProbeRun {
    int exitCode = -1;
    QStringList lines;
    QString errors;
};

// Every file below `dir` with its size, time and a digest of its bytes, so that any write
// shows up as a difference. The sound server's client library keeps its cookie in a folder of
// its own there (as on every desktop); that folder is not the program's.
std::string fingerprint(const QString& dir)
{
    QStringList entries;
    QDirIterator it(dir, QDir::AllEntries | QDir::NoDotAndDotDot | QDir::Hidden,
                    QDirIterator::Subdirectories);
    while (it.hasNext()) {
        const QFileInfo info(it.next());
        const QString name = QDir(dir).relativeFilePath(info.filePath());
        if (name == QStringLiteral("pulse") || name.startsWith(QStringLiteral("pulse/")))
            continue;
        const QByteArray digest =
            QCryptographicHash::hash(readFile(info.filePath()), QCryptographicHash::Sha256).toHex();
        entries << QStringLiteral("%1 %2 %3 %4")
                       .arg(name)
                       .arg(info.size())
                       .arg(info.lastModified().toMSecsSinceEpoch())
                       .arg(QString::fromLatin1(digest));
    }
    entries.sort();
    return entries.join(QLatin1Char('\n')).toStdString();
}

// The report as one text, the discovery figure (the one line that depends on timing) masked.
std::string masked(QStringList lines)
{
    static const QRegularExpression took(QStringLiteral("^  discovery took \\d+\\.\\ds$"));
    for (QString& line : lines) {
        if (took.match(line).hasMatch())
            line = QStringLiteral("  discovery took #.#s");
    }
    return lines.join(QLatin1Char('\n')).toStdString();
}

class ProbeEndToEnd : public testing::Test {
protected:
    // A listening socket where the key service would be; the probe only looks at it.
    void SetUp() override { ASSERT_TRUE(m_keyService.listen(m_state.filePath("keyd.sock"))); }

    std::optional<QString> startHousehold()
    {
        return m_household.start(EMULATOR_HOUSEHOLDS "/home-theatre.json", 1400, true);
    }

    QString settingsPath() const { return m_config.path() + "/velotide/settings.json"; }

    void writeSettings(const QByteArray& bytes) { ASSERT_TRUE(writeFile(settingsPath(), bytes)); }

    // The program as a user would start it, with only the environment a desktop gives it.
    ProbeRun probe(QStringList arguments, bool withInputAccess, const QString& sessionBus = {})
    {
        QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
        environment.insert("XDG_CONFIG_HOME", m_config.path());
        environment.insert("XDG_STATE_HOME", m_state.path());
        // Input access comes from the key service alone: no X server to fall back on.
        for (const char* name : {"WAYLAND_DISPLAY", "XDG_SESSION_TYPE", "DBUS_SESSION_BUS_ADDRESS",
                                 "XDG_RUNTIME_DIR", "DISPLAY"})
            environment.remove(name);
        if (!sessionBus.isEmpty())
            environment.insert("DBUS_SESSION_BUS_ADDRESS", sessionBus);

        QProcess process;
        process.setProcessEnvironment(environment);
        process.start(VELOTIDE_PROGRAM,
                      arguments << "--key-service=" + (withInputAccess
                                                           ? m_keyService.fullServerName()
                                                           : m_state.filePath("no-keyd.sock")));
        ProbeRun run;
        const bool finished = process.waitForFinished(30000);
        if (!finished) {
            process.kill();
            process.waitForFinished();
        }
        if (finished && process.exitStatus() == QProcess::NormalExit)
            run.exitCode = process.exitCode();
        run.lines = QString::fromUtf8(process.readAllStandardOutput()).split(QLatin1Char('\n'));
        run.errors = QString::fromUtf8(process.readAllStandardError());
        if (!finished)
            run.errors += QStringLiteral("(the probe did not finish within 30 s)");
        return run;
    }

    // The expected report: every line ends with a line feed, so the output's last piece after
    // splitting is empty.
    std::string expected(const QString& name) const
    {
        QString text = QString::fromUtf8(readFile(EXPECTED_DIR "/" + name));
        text.replace(QStringLiteral("@SETTINGS@"), settingsPath());
        return text.toStdString();
    }

    QLocalServer m_keyService;
    QTemporaryDir m_config;
    QTemporaryDir m_state;
    emulator::EmulatorThread m_household;
};

TEST_F(ProbeEndToEnd, FirstRunWithHiddenSatellitesAndSomethingPlaying)
{
    ASSERT_EQ(startHousehold(), std::nullopt);
    // A player on the desktop, identified the way the sound server names it.
    QProcess player;
    player.setStandardInputFile("/dev/zero");
    player.start("pacat", {"--property=application.id=org.gnome.Rhythmbox3",
                           "--property=application.name=Rhythmbox"});
    ASSERT_TRUE(player.waitForStarted());
    ASSERT_TRUE(testing_support::spinUntil([] {
        QProcess list;
        list.start("pactl", {"list", "short", "sink-inputs"});
        list.waitForFinished();
        return !list.readAllStandardOutput().trimmed().isEmpty();
    }));

    const std::string before = fingerprint(m_config.path());
    // The probe wins over the overlay demonstration whichever comes first; without a display
    // the demonstration could not even start.
    const ProbeRun run = probe({"--hud-demo", "--probe"}, false);
    player.kill();
    player.waitForFinished();

    EXPECT_EQ(run.exitCode, 0) << run.errors.toStdString();
    EXPECT_EQ(masked(run.lines), expected("first-run.txt"));
    // Nothing was written where the settings live: not even the folder.
    EXPECT_EQ(fingerprint(m_config.path()), before);
}

TEST_F(ProbeEndToEnd, SettingsNamingTheTriggerAndPlayersThatFailControl)
{
    ASSERT_EQ(startHousehold(), std::nullopt);
    // The kitchen refuses its volume question; the bedroom hangs up on what it plays, after
    // answering volume and mute; the office drips its volume, a byte a second, past the
    // time the zones have.
    using Kind = emulator::Fault::Kind;
    m_household->setFault(kKitchen, {.kind = Kind::Status, .status = 500, .only = "GetVolume"});
    m_household->setFault(kBedroom, {.kind = Kind::Close, .only = "GetPositionInfo"});
    m_household->setFault("127.0.0.16",
                          {.kind = Kind::Trickle, .delayMs = 1000, .only = "GetVolume"});
    writeSettings(R"json({
  "speaker": "Living Room",
  "route": "optical",
  "triggerOutput": "Built-in Audio Digital Stereo (IEC958)",
  "triggerConfigured": true,
  "paused": false,
  "lastKnownHost": "127.0.0.11"
})json");

    const std::string before = fingerprint(m_config.path());
    const ProbeRun run = probe({"--probe"}, true);

    EXPECT_EQ(run.exitCode, 0) << run.errors.toStdString();
    EXPECT_EQ(masked(run.lines), expected("trigger-set.txt")) << run.errors.toStdString();
    EXPECT_EQ(fingerprint(m_config.path()), before);
    // Each failing player was asked its questions in order, and no further. (A request whose
    // connection is closed unanswered may be sent once more by the network layer.)
    EXPECT_EQ(m_household->requests(kKitchen).last().action.toStdString(), "GetVolume");
    QStringList bedroom;
    for (const emulator::Request& request : m_household->requests(kBedroom)) {
        const bool question = request.action.startsWith(QStringLiteral("Get")) &&
                              request.action != QStringLiteral("GetZoneGroupState");
        if (question && (bedroom.isEmpty() || bedroom.last() != request.action))
            bedroom << request.action;
    }
    EXPECT_EQ(bedroom.join(u' ').toStdString(), "GetVolume GetMute GetPositionInfo");
}

TEST_F(ProbeEndToEnd, NoSpeakersAnUnreadableSettingsFileAndTheRunningApplication)
{
    writeSettings("{ this is not json");
    const std::string before = fingerprint(m_config.path());
    // This process stands in for the running application, on the bus of the test's wrapper.
    const QString address = qEnvironmentVariable("DBUS_SESSION_BUS_ADDRESS");
    QDBusConnection application = QDBusConnection::sessionBus();
    ASSERT_TRUE(application.registerService("com.brindlewerk.velotide"));
    const ProbeRun run = probe({"--probe"}, true, address);
    EXPECT_EQ(run.exitCode, 0) << run.errors.toStdString();
    EXPECT_EQ(run.lines.mid(0, 7),
              (QStringList{
                  "Velotide probe", "", "WARNING: Velotide is running. Its own SSDP sweeps contend",
                  "with this one, and discovery below may come back empty even",
                  "though the speakers are fine. Quit the app and run again.", "", "PERMISSIONS"}));

    // Once the application is gone the warning is too.
    application.unregisterService("com.brindlewerk.velotide");
    const ProbeRun alone = probe({"--probe"}, true, address);
    EXPECT_EQ(alone.exitCode, 0) << alone.errors.toStdString();
    EXPECT_EQ(masked(alone.lines), expected("no-speakers.txt"));
    // Unlike the application, the probe does not set a bad file aside.
    EXPECT_EQ(fingerprint(m_config.path()), before);
}

// Every player of this household refuses its group state, as players of households of a few
// dozen do. The report still lists each room once, by the player that leads it: in the Loft
// pair that is the player at the higher address.
TEST_F(ProbeEndToEnd, ALargeHouseholdThatRefusesItsTopologyListsItsRooms)
{
    ASSERT_EQ(m_household.start(EMULATOR_HOUSEHOLDS "/household-40.json", 1400, true),
              std::nullopt);
    const ProbeRun run = probe({"--probe"}, true);

    EXPECT_EQ(run.exitCode, 0) << run.errors.toStdString();
    static const QRegularExpression room(QStringLiteral("^  \\S.* — .* at 127\\."));
    const QStringList rooms = run.lines.filter(room);
    EXPECT_EQ(rooms.size(), 29) << rooms.join(u'\n').toStdString();
    EXPECT_TRUE(rooms.contains(QStringLiteral("  Loft — Sonos Five at 127.0.0.48")));
}

} // namespace
