// A first run as a user meets it: the real program against one emulated speaker in a private
// network, a private sound server, X server and session bus, its setup window read and
// operated the way a screen reader does, and a volume key pressed at the end.
#include "AppProcess.h"
#include "common/Files.h"
#include "common/QtPrinters.h"
#include "common/Wait.h"
#include "emulator/Emulator.h"

#include <QDir>
#include <QFile>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>
#include <QTemporaryDir>

#include <gtest/gtest.h>

using namespace std::chrono_literals;
using testing_support::readFile;
using testing_support::spinUntil;

namespace {

const QString livingRoom = QStringLiteral("127.0.0.11");

bool atspi(const QStringList& arguments)
{
    QProcess process;
    process.start(QStringLiteral(ATSPI_TOOL), QStringList{"velotide"} + arguments);
    return process.waitForFinished(20000) && process.exitCode() == 0;
}

bool xdotool(const QStringList& arguments)
{
    QProcess process;
    process.start(QStringLiteral("xdotool"), arguments);
    return process.waitForFinished(10000) && process.exitCode() == 0;
}

TEST(SetupEndToEnd, AFirstRunWalksThroughSetupAndTheKeysDriveThePick)
{
    emulator::EmulatorThread household;
    const auto error = household.start(QStringLiteral(HOUSEHOLD), 1400, true);
    ASSERT_FALSE(error.has_value()) << error->toStdString();
    ASSERT_EQ(QProcess::execute("pactl",
                                {"set-default-sink", "alsa_output.pci-0000_00_1f.3.iec958-stereo"}),
              0);

    // A copy in the user's own programs folder counts as installed, so it may open at login.
    QTemporaryDir home;
    const QString program = home.path() + "/.local/bin/velotide";
    ASSERT_TRUE(QDir().mkpath(home.path() + "/.local/bin"));
    ASSERT_TRUE(QFile::copy(QStringLiteral(VELOTIDE_PROGRAM), program));
    AppProcess app(program, home.path());
    app.setVariable("HOME", home.path());
    app.start();

    ASSERT_TRUE(atspi({"wait", "label", "Your volume keys, for Sonos"})) << app.describe();
    // An ordinary window while setup runs, so the task switcher offers it.
    const QStringList setupWindow{"search", "--onlyvisible", "--name", "^Set up Velotide$"};
    EXPECT_TRUE(xdotool(setupWindow));
    ASSERT_TRUE(atspi({"do", "Continue"}));
    // Nothing else holds the keys on this X server, so the grab works.
    ASSERT_TRUE(atspi({"wait", "label", "Granted \u2014 thank you"})) << app.describe();
    EXPECT_TRUE(atspi({"gone", "push button", "Continue without it"}));
    ASSERT_TRUE(atspi({"do", "Continue"}));
    ASSERT_TRUE(atspi({"wait", "label", "Found 1 speaker"})) << app.describe();
    ASSERT_TRUE(atspi({"do", "Continue"}));
    ASSERT_TRUE(atspi({"wait", "label", "Pick your speaker"}));
    ASSERT_TRUE(atspi({"do", "Living Room \u2014 Beam", "Press"})) << app.describe();
    ASSERT_TRUE(xdotool({"key", "Home", "Return"}));
    ASSERT_TRUE(atspi({"do", "Continue"}));
    ASSERT_TRUE(atspi({"wait", "label", "Try it"}));
    ASSERT_TRUE(atspi({"do", "Open Velotide at login"}));
    ASSERT_TRUE(atspi({"do", "Done"}));
    ASSERT_TRUE(app.waitFor("setup finished with speaker 'Living Room', open at login: yes"))
        << app.describe();
    EXPECT_TRUE(atspi({"gone", "label", "Try it"}));
    EXPECT_FALSE(xdotool(setupWindow)) << "no window left for the task switcher";

    const QString settings = home.path() + "/config/velotide/settings.json";
    EXPECT_TRUE(spinUntil(
        [&] {
            const QJsonObject saved = QJsonDocument::fromJson(readFile(settings)).object();
            return saved.value("speaker") == "Living Room" &&
                   saved.value("loginItemOffered").toBool();
        },
        5s))
        << readFile(settings).toStdString();
    const QString entry = home.path() + "/config/autostart/com.brindlewerk.velotide.desktop";
    EXPECT_TRUE(spinUntil([&] { return readFile(entry).contains(program.toUtf8()); }, 5s))
        << readFile(entry).toStdString();

    ASSERT_TRUE(app.waitFor("volume keys armed")) << app.describe();
    ASSERT_TRUE(xdotool({"key", "XF86AudioRaiseVolume"}));
    EXPECT_TRUE(spinUntil([&] { return household->volume(livingRoom) == 22; }, 5s))
        << household->volume(livingRoom);
    EXPECT_EQ(app.stop(), 0) << app.describe();
}

} // namespace
