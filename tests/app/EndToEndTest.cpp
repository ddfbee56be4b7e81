// The real velotide program against a household of emulated players (real SSDP and HTTP in
// a private network namespace), a private PulseAudio daemon, a private X server and a
// private session bus, all started by the test's wrappers. Volume keys go in through XTEST
// (xdotool), exactly as a keyboard's would, and come out as SOAP requests at the player.
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

// One run of the program with its files under `home` (settings, log, runtime folder) and its
// standard error collected line by line. No key service: the keys are caught by the X11 grab.
// Stopped when it goes out of scope.
class App {
public:
    explicit App(const QString& home)
    {
        QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
        env.insert(QStringLiteral("XDG_CONFIG_HOME"), home + QStringLiteral("/config"));
        env.insert(QStringLiteral("XDG_STATE_HOME"), home + QStringLiteral("/state"));
        env.insert(QStringLiteral("XDG_RUNTIME_DIR"), home);
        m_process.setProcessEnvironment(env);
        m_arguments << QStringLiteral("--key-service=") + home + QStringLiteral("/no-keyd");
        QObject::connect(&m_process, &QProcess::readyReadStandardError, [this] { readErrors(); });
    }

    ~App() { stop(); }

    // An empty value removes the variable.
    void setVariable(const QString& name, const QString& value)
    {
        QProcessEnvironment env = m_process.processEnvironment();
        if (value.isEmpty())
            env.remove(name);
        else
            env.insert(name, value);
        m_process.setProcessEnvironment(env);
    }

    void start() { m_process.start(QString::fromLocal8Bit(qgetenv("VELOTIDE_BIN")), m_arguments); }

    // Ends it as a session ending would (SIGTERM), killing it only when that fails; answers
    // the exit code, or -1 when it did not end by itself.
    int stop()
    {
        if (m_process.state() != QProcess::NotRunning) {
            m_process.terminate();
            if (!m_process.waitForFinished(5000)) {
                m_process.kill();
                m_process.waitForFinished(2000);
                return -1;
            }
        }
        return exitCode();
    }

    // Runs to the end; answers the exit code, or -1 when it is still running or crashed.
    int finish(std::chrono::milliseconds timeout)
    {
        if (!spinUntil([this] { return m_process.state() == QProcess::NotRunning; }, timeout))
            return -1;
        return exitCode();
    }

    qint64 pid() const { return m_process.processId(); }

    // The messages logged so far, without their timestamps.
    const QStringList& messages() const { return m_messages; }

    bool logged(const QString& message) const { return m_messages.contains(message); }

    bool waitFor(const QString& message, std::chrono::milliseconds timeout = 15s)
    {
        return spinUntil([&] { return logged(message); }, timeout);
    }

    bool waitForPrefix(const QString& prefix)
    {
        return spinUntil([&] { return !withPrefix(prefix).isEmpty(); }, 15s);
    }

    QStringList withPrefix(const QString& prefix) const
    {
        QStringList found;
        for (const QString& message : m_messages)
            if (message.startsWith(prefix))
                found << message;
        return found;
    }

    // Everything it wrote to standard error, and how it stands, for failure messages.
    std::string describe() const
    {
        const QString how = m_process.state() == QProcess::NotRunning
                                ? QStringLiteral("exited with %1").arg(m_process.exitCode())
                                : QStringLiteral("running as pid %1").arg(pid());
        return (m_stderr + QStringLiteral("(") + how + QStringLiteral(")")).toStdString();
    }

private:
    int exitCode()
    {
        readErrors();
        return m_process.exitStatus() == QProcess::NormalExit ? m_process.exitCode() : -1;
    }

    // Log lines are "yyyy-MM-dd HH:mm:ss message"; anything else (Qt's own warnings) is kept
    // only in the full text.
    void readErrors()
    {
        m_stderr += QString::fromUtf8(m_process.readAllStandardError());
        const qsizetype end = m_stderr.lastIndexOf(u'\n') + 1;
        const QStringList lines = m_stderr.mid(m_parsed, end - m_parsed).split(u'\n');
        m_parsed = end;
        for (const QString& line : lines)
            if (line.size() > 20 && line.at(4) == u'-' && line.at(19) == u' ')
                m_messages << line.mid(20);
    }

    QStringList m_arguments;
    QProcess m_process;
    QString m_stderr;
    qsizetype m_parsed = 0;
    QStringList m_messages;
};

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
    App app(m_home.path());
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
    App second(m_home.path());
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
    App app(m_home.path());
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
    App app(m_home.path());
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
