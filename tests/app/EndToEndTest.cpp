// The real velotide program against a household of emulated players (real SSDP and HTTP in
// a private network namespace), a private PulseAudio daemon, a private X server and a
// private session bus, all started by the test's wrappers. Volume keys go in through XTEST
// (xdotool), exactly as a keyboard's would, and come out as SOAP requests at the player.
#include "AppProcess.h"
#include "common/Files.h"
#include "common/QtPrinters.h"
#include "common/Wait.h"
#include "emulator/Emulator.h"

#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>
#include <QTemporaryDir>

#include <gtest/gtest.h>

#include <algorithm>

using namespace std::chrono_literals;
using testing_support::readFile;
using testing_support::spinFor;
using testing_support::spinUntil;
using testing_support::writeFile;

namespace {

const QString livingRoom = QStringLiteral("127.0.0.11");
const QString digitalSink = QStringLiteral("alsa_output.pci-0000_00_1f.3.iec958-stereo");
const QString digitalName = QStringLiteral("Built-in Audio Digital Stereo (IEC958)");

bool setDefaultSink(const QString& sink)
{
    return QProcess::execute("pactl", {"set-default-sink", sink}) == 0;
}

bool pressKey(const QString& keys)
{
    return QProcess::execute("xdotool", {"key", keys}) == 0;
}

// The panel as a screen reader reads and operates it (tests/common/atspi); answers whether
// the command succeeded, with what it printed in `output`.
bool atspi(const QStringList& arguments, QString* output = nullptr)
{
    QProcess process;
    process.start(QStringLiteral(ATSPI_TOOL), QStringList{"velotide"} + arguments);
    const bool done = process.waitForFinished(20000) && process.exitCode() == 0;
    if (output)
        *output = QString::fromUtf8(process.readAllStandardOutput());
    return done;
}

// The tray host puts the first icon at the screen's top left.
bool clickTrayIcon()
{
    return QProcess::execute("xdotool", {"mousemove", "12", "12", "click", "1"}) == 0;
}

// Long enough for the X server to repeat the key.
bool holdKey(const QString& key)
{
    return QProcess::execute("xdotool", {"keydown", key, "sleep", "1.2", "keyup", key}) == 0;
}

class EndToEnd : public testing::Test {
protected:
    void SetUp() override
    {
        ASSERT_FALSE(qgetenv("VELOTIDE_BIN").isEmpty());
        const auto error =
            m_household.start(QString::fromLocal8Bit(qgetenv("VELOTIDE_HOUSEHOLD")), 1400, true);
        ASSERT_FALSE(error.has_value()) << error->toStdString();
        ASSERT_TRUE(setDefaultSink(digitalSink));
    }

    // With the speaker and the trigger chosen, unless `firstRun`.
    std::unique_ptr<AppProcess> startApp(bool firstRun = false)
    {
        const QJsonObject chosen{{"speaker", "Living Room"},
                                 {"triggerOutput", digitalName},
                                 {"triggerConfigured", true},
                                 {"route", "optical"}};
        if (!firstRun) {
            EXPECT_TRUE(writeFile(settingsPath(), QJsonDocument(chosen).toJson()));
        }
        return std::make_unique<AppProcess>(QString::fromLocal8Bit(qgetenv("VELOTIDE_BIN")),
                                            m_home.path());
    }

    QJsonObject savedSettings() const
    {
        return QJsonDocument::fromJson(readFile(settingsPath())).object();
    }

    QString settingsPath() const { return m_home.path() + "/config/velotide/settings.json"; }

    // The values of one SOAP argument in the requests of one action, in order of arrival.
    QStringList sent(const QString& action, const QString& argument) const
    {
        QStringList values;
        for (const emulator::Request& r : m_household->requests(livingRoom))
            if (r.action == action)
                values << r.argument(argument);
        return values;
    }
    QStringList volumesSent() const { return sent("SetVolume", "DesiredVolume"); }

    bool waitForVolume(const QString& volume)
    {
        return spinUntil([&] { return volumesSent().contains(volume); }, 5s);
    }

    QTemporaryDir m_home;
    emulator::EmulatorThread m_household;
};

TEST_F(EndToEnd, VolumeKeysReachTheOnlyInstanceWhileSoundGoesToTheTrigger)
{
    const auto app = startApp();
    app->start();
    ASSERT_TRUE(app->waitFor("Connected to Living Room (Sonos Arc) at 127.0.0.11, volume 25"))
        << app->describe();
    ASSERT_TRUE(app->waitFor("volume keys armed")) << app->describe();

    // The mirror starts from the speaker's own level: 25, then up by 2, up by 1 with Shift,
    // down by 2.
    ASSERT_TRUE(pressKey("XF86AudioRaiseVolume"));
    EXPECT_TRUE(waitForVolume("27")) << app->describe();
    ASSERT_TRUE(pressKey("shift+XF86AudioRaiseVolume"));
    EXPECT_TRUE(waitForVolume("28"));
    ASSERT_TRUE(pressKey("XF86AudioLowerVolume"));
    EXPECT_TRUE(waitForVolume("26"));
    EXPECT_TRUE(spinUntil([&] { return m_household->volume(livingRoom) == 26; }, 5s));

    ASSERT_TRUE(pressKey("XF86AudioMute"));
    EXPECT_TRUE(spinUntil([&] { return m_household->muted(livingRoom); }, 5s));
    // Raising the volume unmutes.
    ASSERT_TRUE(pressKey("XF86AudioRaiseVolume"));
    EXPECT_TRUE(waitForVolume("28"));
    EXPECT_TRUE(spinUntil([&] { return !m_household->muted(livingRoom); }, 5s));

    // Sound moves to another output: the keys go back to the desktop.
    ASSERT_TRUE(setDefaultSink("alsa_output.pci-0000_00_1f.3.analog-stereo"));
    ASSERT_TRUE(app->waitFor(
        "volume keys not armed — output is Built-in Audio Analog Stereo, not " + digitalName))
        << app->describe();
    const qsizetype before = volumesSent().size();
    ASSERT_TRUE(pressKey("XF86AudioRaiseVolume"));
    spinFor(1500ms);
    EXPECT_EQ(volumesSent().size(), before);
    EXPECT_EQ(m_household->volume(livingRoom), 28);

    // And back.
    ASSERT_TRUE(setDefaultSink(digitalSink));
    ASSERT_TRUE(spinUntil([&] { return app->messages().count("volume keys armed") == 2; }, 10s));
    ASSERT_TRUE(pressKey("XF86AudioRaiseVolume"));
    EXPECT_TRUE(waitForVolume("30"));

    // The X server repeats a held key; the repeats of mute are swallowed and ignored. Each
    // press sends its level, then its mute state: the last press is whole once a mute request
    // follows the last level.
    ASSERT_TRUE(spinUntil(
        [&] {
            QStringList actions;
            for (const emulator::Request& r : m_household->requests(livingRoom))
                actions << r.action;
            return actions.lastIndexOf("SetMute") > actions.lastIndexOf("SetVolume");
        },
        5s));
    const QStringList mutes = sent("SetMute", "DesiredMute");
    ASSERT_TRUE(holdKey("XF86AudioMute"));
    spinFor(1000ms);
    EXPECT_TRUE(m_household->muted(livingRoom));
    EXPECT_EQ(sent("SetMute", "DesiredMute"), mutes + QStringList{"1"});
    // A held volume key goes on stepping.
    ASSERT_TRUE(holdKey("XF86AudioRaiseVolume"));
    EXPECT_TRUE(spinUntil([&] { return m_household->volume(livingRoom) > 34; }, 5s))
        << m_household->volume(livingRoom);
    // The unmute goes out once the level has settled.
    EXPECT_TRUE(spinUntil([&] { return !m_household->muted(livingRoom); }, 5s));

    // A second launch asks this one to show itself and exits without starting.
    AppProcess second(QString::fromLocal8Bit(qgetenv("VELOTIDE_BIN")), m_home.path());
    second.start();
    EXPECT_EQ(second.finish(10s), 0) << second.describe();
    EXPECT_TRUE(second.logged(
        QStringLiteral("another instance is already running (pid %1); showing it and exiting")
            .arg(app->pid())))
        << second.describe();
    EXPECT_EQ(app->stop(), 0) << app->describe();
}

// The panel as a user meets it: opened from the tray icon, read and operated the way a screen
// reader does, every control reaching the speaker or the settings file.
TEST_F(EndToEnd, ThePanelShowsTheSpeakerAndEveryControlReachesIt)
{
    const auto app = startApp();
    app->start();
    ASSERT_TRUE(app->waitFor("volume keys armed")) << app->describe();
    ASSERT_TRUE(clickTrayIcon());
    ASSERT_TRUE(atspi({"wait", "slider", "Volume"})) << app->describe();
    QString focused;
    EXPECT_TRUE(atspi({"focused"}, &focused));
    EXPECT_TRUE(focused.startsWith("slider")) << focused.toStdString();
    ASSERT_TRUE(pressKey("Escape"));
    ASSERT_TRUE(atspi({"gone", "slider", "Volume"}));
    // A click just after the panel closed is taken for the click that closed it.
    spinFor(300ms);
    ASSERT_TRUE(clickTrayIcon());
    ASSERT_TRUE(atspi({"wait", "slider", "Volume"}));
    EXPECT_TRUE(atspi({"wait", "label", "TV"})) << "the soundbar plays its TV input";
    // Meanwhile the computer's own player fills the lines.
    QProcess film;
    film.start("mpv", {"--no-config", "--script=/usr/lib/mpv-mpris/mpris.so", "--ao=null",
                       "--force-media-title=The Film", "av://lavfi:sine"});
    EXPECT_TRUE(atspi({"wait", "label", "The Film"})) << app->describe();
    film.kill();
    film.waitForFinished();

    ASSERT_TRUE(atspi({"set", "Volume", "40"}));
    EXPECT_TRUE(waitForVolume("40")) << app->describe();
    // Night mode and speech enhancement are switched to what they are not.
    ASSERT_TRUE(atspi({"do", "Night"}));
    EXPECT_TRUE(spinUntil([&] { return sent("SetEQ", "DesiredValue") == QStringList{"1"}; }, 5s));
    EXPECT_EQ(m_household->eq(livingRoom, "NightMode"), true);
    ASSERT_TRUE(atspi({"do", "Speech"}));
    EXPECT_TRUE(spinUntil([&] { return sent("SetEQ", "EQType").contains("DialogLevel"); }, 5s));
    EXPECT_TRUE(spinUntil([&] { return m_household->eq(livingRoom, "DialogLevel") == false; }, 5s));

    // The keys button pauses the keys; the warning's fix turns them back on.
    ASSERT_TRUE(atspi({"do", "Keys on"}));
    EXPECT_TRUE(spinUntil([&] { return savedSettings().value("paused").toBool(); }, 5s));
    ASSERT_TRUE(atspi({"do", "Turn the keys back on"})) << app->describe();
    EXPECT_TRUE(spinUntil([&] { return !savedSettings().value("paused").toBool(); }, 5s));

    // The output and another speaker from the settings section: saved, and the keys drive
    // that speaker on any output.
    ASSERT_TRUE(atspi({"do", "Setup"}));
    ASSERT_TRUE(
        atspi({"do", "Volume keys redirect only while this computer plays through this output",
               "Press"}));
    ASSERT_TRUE(QProcess::execute("xdotool", {"key", "Home", "Return"}) == 0);
    EXPECT_TRUE(
        spinUntil([&] { return savedSettings().value("triggerOutput").toString().isEmpty(); }, 5s))
        << QJsonDocument(savedSettings()).toJson().toStdString();
    ASSERT_TRUE(
        atspi({"do", "Which speaker the volume keys control, and how audio reaches it", "Press"}));
    ASSERT_TRUE(QProcess::execute("xdotool", {"type", "--delay", "50", "Kitchen"}) == 0);
    ASSERT_TRUE(pressKey("Return"));
    EXPECT_TRUE(
        spinUntil([&] { return savedSettings().value("speaker").toString() == "Kitchen"; }, 5s));
    ASSERT_TRUE(app->waitForPrefix("Connected to Kitchen")) << app->describe();
    ASSERT_TRUE(pressKey("XF86AudioRaiseVolume"));
    EXPECT_TRUE(spinUntil([&] { return m_household->volume("127.0.0.15") == 20; }, 5s));

    // The kitchen plays a paused track: the transport goes to it.
    ASSERT_TRUE(atspi({"wait", "label", "Never Gonna Give You Up"})) << app->describe();
    ASSERT_TRUE(atspi({"do", "Play / pause"}));
    EXPECT_TRUE(
        spinUntil([&] { return m_household->transportState("127.0.0.15") == "PLAYING"; }, 5s));
    ASSERT_TRUE(atspi({"do", "Next track"}));
    EXPECT_TRUE(spinUntil(
        [&] {
            const auto requests = m_household->requests("127.0.0.15");
            return std::any_of(requests.begin(), requests.end(),
                               [](const emulator::Request& r) { return r.action == "Next"; });
        },
        5s));

    // A click on the icon closes the panel; a second launch shows it again.
    ASSERT_TRUE(clickTrayIcon());
    ASSERT_TRUE(atspi({"gone", "slider", "Volume"}));
    AppProcess second(QString::fromLocal8Bit(qgetenv("VELOTIDE_BIN")), m_home.path());
    second.start();
    EXPECT_EQ(second.finish(10s), 0) << second.describe();
    EXPECT_TRUE(atspi({"wait", "slider", "Volume"})) << app->describe();
    EXPECT_EQ(app->stop(), 0) << app->describe();
}

// The tray icon's menu, keyed through: Down from the top, Up from the bottom.
bool chooseFromTrayMenu(const QStringList& keys)
{
    return QProcess::execute("xdotool", {"mousemove", "12", "12", "click", "3"}) == 0 &&
           QProcess::execute("xdotool",
                             QStringList{"sleep", "0.5", "key", "--delay", "100"} + keys) == 0;
}

// The report window and the diagnostics alerts, reached from the menu as a user does.
// A change made on the speaker itself (the household's own app) shows in the open panel
// through the speaker's event message, before the program's next check of the speaker.
TEST_F(EndToEnd, AChangeMadeElsewhereShowsInThePanelBeforeTheNextCheck)
{
    const auto app = startApp();
    app->start();
    ASSERT_TRUE(app->waitFor("volume keys armed")) << app->describe();
    ASSERT_TRUE(clickTrayIcon());
    ASSERT_TRUE(atspi({"wait", "slider", "Volume"})) << app->describe();
    // Just after a check, the next is five seconds away.
    m_household->clearRequests();
    ASSERT_TRUE(spinUntil([&] { return !sent("GetVolume", "Channel").isEmpty(); }, 10s));
    m_household->clearRequests();
    m_household->setVolume(livingRoom, 17);
    // The program's word that it has the change is read at once; the screen reader's view of
    // the panel may take longer than the five seconds to the next check on a busy machine.
    ASSERT_TRUE(app->waitFor("speaker moved externally to 17", 5s)) << app->describe();
    EXPECT_EQ(sent("GetVolume", "Channel"), QStringList()) << "the check came first";
    EXPECT_TRUE(spinUntil(
        [&] {
            QString value;
            return atspi({"value", "Volume"}, &value) && value.trimmed().toDouble() == 17;
        },
        10s))
        << app->describe();
    // Quitting tells the player the subscriptions end.
    EXPECT_EQ(app->stop(), 0);
    const QList<emulator::Request> requests = m_household->requests(livingRoom);
    EXPECT_EQ(std::count_if(requests.cbegin(), requests.cend(),
                            [](const emulator::Request& r) { return r.method == "UNSUBSCRIBE"; }),
              3);
}

TEST_F(EndToEnd, TheMenuOpensTheReportWindowAndSaysWhenDiagnosticsAreCopied)
{
    const auto app = startApp();
    app->start();
    ASSERT_TRUE(app->waitFor("volume keys armed")) << app->describe();

    ASSERT_TRUE(chooseFromTrayMenu({"Down", "Down", "Return"}));
    ASSERT_TRUE(atspi({"wait", "push button", "Send Report"})) << app->describe();
    QString focused;
    EXPECT_TRUE(atspi({"focused"}, &focused));
    EXPECT_EQ(focused.trimmed().toStdString(), "text\tThe email address we should reply to");
    ASSERT_TRUE(QProcess::execute("xdotool", {"type", "--delay", "20", "me@example.com"}) == 0);
    ASSERT_TRUE(pressKey("Tab"));
    ASSERT_TRUE(QProcess::execute("xdotool", {"type", "--delay", "20", "No keys today."}) == 0);
    ASSERT_TRUE(atspi({"do", "Send Report"}));
    // This build has no server to send to.
    EXPECT_TRUE(atspi({"wait", "label", "Reporting is not available in this build"}));
    ASSERT_TRUE(atspi({"do", "Cancel"}));
    ASSERT_TRUE(atspi({"gone", "push button", "Send Report"}));

    ASSERT_TRUE(chooseFromTrayMenu({"Up", "Up", "Return"}));
    ASSERT_TRUE(atspi({"do", "Show What Was Copied"})) << app->describe();
    EXPECT_TRUE(app->waitForPrefix("diagnostics copied to clipboard (")) << app->describe();
    ASSERT_TRUE(atspi({"do", "Done"}));
    EXPECT_TRUE(atspi({"gone", "push button", "Done"}));
    EXPECT_EQ(app->stop(), 0) << app->describe();
}

TEST_F(EndToEnd, WithoutInputAccessTheUserIsToldHowToGetIt)
{
    // No key service and no X server to grab keys from: nothing can catch the keys.
    const auto app = startApp();
    app->setVariable("DISPLAY", {});
    app->setVariable("QT_QPA_PLATFORM", "offscreen");
    app->start();
    ASSERT_TRUE(app->waitFor("Input access needed — requesting")) << app->describe();
    EXPECT_TRUE(app->waitForPrefix("The volume keys need the key service velotide-keyd."))
        << app->describe();
    ASSERT_TRUE(app->waitForPrefix("Connected to Living Room")) << app->describe();
    EXPECT_EQ(app->stop(), 0) << app->describe();
    EXPECT_TRUE(app->logged("volume keys not armed — input access missing")) << app->describe();
    EXPECT_FALSE(app->logged("volume keys armed"));
}

TEST_F(EndToEnd, FirstRunPicksTheZoneOnTheOpticalCableAndTheDigitalOutput)
{
    const auto app = startApp(true);
    app->start();
    ASSERT_TRUE(app->waitForPrefix("Auto-detected Living Room ")) << app->describe();
    ASSERT_TRUE(app->waitFor("Auto-detected trigger output: " + digitalName)) << app->describe();
    ASSERT_TRUE(app->waitFor("volume keys armed")) << app->describe();
    // The choices and the host the speaker answered at are saved as they become known.
    const QJsonObject expected{{"speaker", "Living Room"},
                               {"route", "optical"},
                               {"triggerOutput", digitalName},
                               {"triggerConfigured", true},
                               {"opticalOutput", digitalName},
                               {"airplayOutput", ""},
                               {"paused", false},
                               {"loginItemOffered", false},
                               {"lastKnownHost", livingRoom},
                               {"automaticUpdateChecks", true}};
    EXPECT_TRUE(spinUntil([&] { return savedSettings() == expected; }, 5s))
        << QJsonDocument(savedSettings()).toJson().toStdString();

    ASSERT_TRUE(pressKey("XF86AudioLowerVolume"));
    EXPECT_TRUE(waitForVolume("23"));
}

} // namespace
