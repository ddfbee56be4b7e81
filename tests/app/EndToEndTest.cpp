// The real velotide program against a household of emulated players (real SSDP and HTTP in
// a private network namespace), a private PulseAudio daemon, a private X server and a
// private session bus, all started by the test's wrappers. Volume keys go in through XTEST
// (xdotool), exactly as a keyboard's would, and come out as SOAP requests at the player.
#include "AppProcess.h"
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
using testing_support::spinFor;
using testing_support::spinUntil;

namespace {

const QString livingRoom = QStringLiteral("127.0.0.11");
const QString digitalSink = QStringLiteral("alsa_output.pci-0000_00_1f.3.iec958-stereo");
const QString digitalName = QStringLiteral("Built-in Audio Digital Stereo (IEC958)");
const QString analogSink = QStringLiteral("alsa_output.pci-0000_00_1f.3.analog-stereo");
const QString analogName = QStringLiteral("Built-in Audio Analog Stereo");

QString velotideProgram()
{
    return QString::fromLocal8Bit(qgetenv("VELOTIDE_BIN"));
}

bool run(const QString& program, const QStringList& arguments)
{
    return QProcess::execute(program, arguments) == 0;
}

bool setDefaultSink(const QString& sink)
{
    return run(QStringLiteral("pactl"), {QStringLiteral("set-default-sink"), sink});
}

bool pressKey(const QString& keys)
{
    return run(QStringLiteral("xdotool"), {QStringLiteral("key"), keys});
}

// Long enough for the X server to repeat the key.
bool holdKey(const QString& key)
{
    return run(QStringLiteral("xdotool"), {QStringLiteral("keydown"), key, QStringLiteral("sleep"),
                                           QStringLiteral("1.2"), QStringLiteral("keyup"), key});
}

class EndToEnd : public testing::Test {
protected:
    void SetUp() override
    {
        ASSERT_TRUE(m_home.isValid());
        ASSERT_FALSE(qgetenv("VELOTIDE_BIN").isEmpty());
        const auto error =
            m_household.start(QString::fromLocal8Bit(qgetenv("VELOTIDE_HOUSEHOLD")), 1400, true);
        ASSERT_FALSE(error.has_value()) << error->toStdString();
        ASSERT_TRUE(setDefaultSink(digitalSink));
    }

    void writeSettings(const QJsonObject& settings)
    {
        QDir().mkpath(configDir());
        QFile file(configDir() + QStringLiteral("/settings.json"));
        ASSERT_TRUE(file.open(QIODevice::WriteOnly));
        file.write(QJsonDocument(settings).toJson());
    }

    QJsonObject savedSettings() const
    {
        QFile file(configDir() + QStringLiteral("/settings.json"));
        if (!file.open(QIODevice::ReadOnly))
            return {};
        return QJsonDocument::fromJson(file.readAll()).object();
    }

    QString configDir() const { return m_home.path() + QStringLiteral("/config/velotide"); }

    // The values of one SOAP argument in the requests of one action, in order of arrival.
    QStringList sent(const QString& action, const QString& argument) const
    {
        QStringList values;
        for (const emulator::Request& r : m_household->requests(livingRoom))
            if (r.action == action)
                values << r.argument(argument);
        return values;
    }

    bool waitForVolume(const QString& volume)
    {
        return spinUntil(
            [&] {
                return sent(QStringLiteral("SetVolume"), QStringLiteral("DesiredVolume"))
                    .contains(volume);
            },
            5s);
    }

    QJsonObject chosenSpeakerSettings() const
    {
        return QJsonObject{{"speaker", "Living Room"},
                           {"triggerOutput", digitalName},
                           {"triggerConfigured", true},
                           {"route", "optical"}};
    }

    QTemporaryDir m_home;
    emulator::EmulatorThread m_household;
};

TEST_F(EndToEnd, VolumeKeysReachTheOnlyInstanceWhileSoundGoesToTheTrigger)
{
    writeSettings(chosenSpeakerSettings());
    AppProcess app(velotideProgram(), m_home.path());
    app.start();
    ASSERT_TRUE(app.waitForPrefix(QStringLiteral("Starting Velotide "))) << app.describe();
    EXPECT_TRUE(
        app.withPrefix(QStringLiteral("Starting Velotide "))
            .first()
            .endsWith(QStringLiteral(" for speaker 'Living Room' (active while output is '") +
                      digitalName + QStringLiteral("')")))
        << app.describe();
    ASSERT_TRUE(app.waitFor(
        QStringLiteral("Connected to Living Room (Sonos Arc) at 127.0.0.11, volume 25")))
        << app.describe();
    ASSERT_TRUE(app.waitFor(QStringLiteral("volume keys armed"))) << app.describe();

    // The mirror starts from the speaker's own level: 25, then up by 2, up by 1 with Shift,
    // down by 2.
    ASSERT_TRUE(pressKey(QStringLiteral("XF86AudioRaiseVolume")));
    EXPECT_TRUE(waitForVolume(QStringLiteral("27"))) << app.describe();
    ASSERT_TRUE(pressKey(QStringLiteral("shift+XF86AudioRaiseVolume")));
    EXPECT_TRUE(waitForVolume(QStringLiteral("28")));
    ASSERT_TRUE(pressKey(QStringLiteral("XF86AudioLowerVolume")));
    EXPECT_TRUE(waitForVolume(QStringLiteral("26")));
    EXPECT_TRUE(spinUntil([&] { return m_household->volume(livingRoom) == 26; }, 5s));

    ASSERT_TRUE(pressKey(QStringLiteral("XF86AudioMute")));
    EXPECT_TRUE(spinUntil([&] { return m_household->muted(livingRoom); }, 5s));
    // Raising the volume unmutes.
    ASSERT_TRUE(pressKey(QStringLiteral("XF86AudioRaiseVolume")));
    EXPECT_TRUE(waitForVolume(QStringLiteral("28")));
    EXPECT_TRUE(spinUntil([&] { return !m_household->muted(livingRoom); }, 5s));

    // Sound moves to another output: the keys go back to the desktop.
    ASSERT_TRUE(setDefaultSink(analogSink));
    ASSERT_TRUE(app.waitFor(QStringLiteral("volume keys not armed — output is ") + analogName +
                            QStringLiteral(", not ") + digitalName))
        << app.describe();
    const qsizetype before =
        sent(QStringLiteral("SetVolume"), QStringLiteral("DesiredVolume")).size();
    ASSERT_TRUE(pressKey(QStringLiteral("XF86AudioRaiseVolume")));
    spinFor(1500ms);
    EXPECT_EQ(sent(QStringLiteral("SetVolume"), QStringLiteral("DesiredVolume")).size(), before);
    EXPECT_EQ(m_household->volume(livingRoom), 28);

    // And back.
    ASSERT_TRUE(setDefaultSink(digitalSink));
    ASSERT_TRUE(spinUntil(
        [&] { return app.messages().count(QStringLiteral("volume keys armed")) == 2; }, 10s));
    ASSERT_TRUE(pressKey(QStringLiteral("XF86AudioRaiseVolume")));
    EXPECT_TRUE(waitForVolume(QStringLiteral("30")));

    // The X server repeats a held key; the repeats of mute are swallowed and ignored.
    const QStringList mutes = sent(QStringLiteral("SetMute"), QStringLiteral("DesiredMute"));
    ASSERT_TRUE(holdKey(QStringLiteral("XF86AudioMute")));
    spinFor(1000ms);
    EXPECT_TRUE(m_household->muted(livingRoom));
    EXPECT_EQ(sent(QStringLiteral("SetMute"), QStringLiteral("DesiredMute")),
              mutes + QStringList{QStringLiteral("1")});
    // A held volume key goes on stepping.
    ASSERT_TRUE(holdKey(QStringLiteral("XF86AudioRaiseVolume")));
    EXPECT_TRUE(spinUntil([&] { return m_household->volume(livingRoom) > 34; }, 5s))
        << m_household->volume(livingRoom);
    EXPECT_FALSE(m_household->muted(livingRoom));

    // A second launch asks this one to show itself and exits without starting.
    AppProcess second(velotideProgram(), m_home.path());
    second.start();
    EXPECT_EQ(second.finish(10s), 0) << second.describe();
    EXPECT_TRUE(second.logged(
        QStringLiteral("another instance is already running (pid %1); showing it and exiting")
            .arg(app.pid())))
        << second.describe();
    EXPECT_TRUE(second.messages().filter(QStringLiteral("Starting Velotide")).isEmpty());
    EXPECT_EQ(app.stop(), 0) << app.describe();
}

TEST_F(EndToEnd, WithoutInputAccessTheUserIsToldHowToGetIt)
{
    // No key service and no X server to grab keys from: nothing can catch the keys.
    writeSettings(chosenSpeakerSettings());
    AppProcess app(velotideProgram(), m_home.path());
    app.setVariable(QStringLiteral("DISPLAY"), {});
    app.setVariable(QStringLiteral("QT_QPA_PLATFORM"), QStringLiteral("offscreen"));
    app.start();
    ASSERT_TRUE(app.waitFor(QStringLiteral("Input access needed — requesting"))) << app.describe();
    EXPECT_TRUE(
        app.waitForPrefix(QStringLiteral("The volume keys need the key service velotide-keyd.")))
        << app.describe();
    ASSERT_TRUE(app.waitForPrefix(QStringLiteral("Connected to Living Room"))) << app.describe();
    EXPECT_EQ(app.stop(), 0) << app.describe();
    EXPECT_TRUE(app.logged(QStringLiteral("volume keys not armed — input access missing")))
        << app.describe();
    EXPECT_FALSE(app.logged(QStringLiteral("volume keys armed")));
}

TEST_F(EndToEnd, FirstRunPicksTheZoneOnTheOpticalCableAndTheDigitalOutput)
{
    AppProcess app(velotideProgram(), m_home.path());
    app.start();
    ASSERT_TRUE(app.waitForPrefix(QStringLiteral("Starting Velotide "))) << app.describe();
    EXPECT_TRUE(app.withPrefix(QStringLiteral("Starting Velotide "))
                    .first()
                    .endsWith(QStringLiteral(" for speaker '(not chosen)' (active on any output)")))
        << app.describe();
    ASSERT_TRUE(app.waitForPrefix(QStringLiteral("Auto-detected Living Room "))) << app.describe();
    ASSERT_TRUE(app.waitFor(QStringLiteral("Auto-detected trigger output: ") + digitalName))
        << app.describe();
    ASSERT_TRUE(app.waitFor(QStringLiteral("volume keys armed"))) << app.describe();
    // The trigger and the host the speaker answered at are saved as they become known.
    ASSERT_TRUE(spinUntil(
        [&] {
            const QJsonObject saved = savedSettings();
            return saved.value(QStringLiteral("triggerOutput")).toString() == digitalName &&
                   !saved.value(QStringLiteral("lastKnownHost")).toString().isEmpty();
        },
        5s))
        << QJsonDocument(savedSettings()).toJson().toStdString();
    const QJsonObject saved = savedSettings();
    EXPECT_EQ(saved.value(QStringLiteral("speaker")).toString(), QStringLiteral("Living Room"));
    EXPECT_TRUE(saved.value(QStringLiteral("triggerConfigured")).toBool());
    EXPECT_EQ(saved.value(QStringLiteral("lastKnownHost")).toString(), livingRoom);

    ASSERT_TRUE(pressKey(QStringLiteral("XF86AudioLowerVolume")));
    EXPECT_TRUE(waitForVolume(QStringLiteral("23")));
}

} // namespace
