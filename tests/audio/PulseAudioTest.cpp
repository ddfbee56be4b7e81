#include "audio/PulseAudio.h"

#include "PulseTools.h"
#include "common/Wait.h"

#include <QProcess>
#include <QThread>

#include <gtest/gtest.h>

namespace {

using pulse_testing::pactl;
using testing_support::await;
using testing_support::spinFor;
using testing_support::spinUntil;

const QString builtInSink = QStringLiteral("alsa_output.pci-0000_00_1f.3.analog-stereo");

class PulseAudioTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        ASSERT_FALSE(qEnvironmentVariableIsEmpty("PULSE_SERVER")) << "run through with-pulseaudio";
        // The first copy is announced too, on a later turn of the event loop than the one
        // that can see it: wait for the announcement, so that a test counts only its own.
        int announced = 0;
        const auto counting =
            QObject::connect(&device, &AudioDevice::changed, [&] { ++announced; });
        ASSERT_TRUE(spinUntil([&] { return device.state().connected && announced > 0; }));
        QObject::disconnect(counting);
    }
    void TearDown() override { pactl({"set-default-sink", builtInSink}); }

    bool waitFor(const std::function<bool(const AudioDevice::State&)>& holds)
    {
        return spinUntil([&] { return holds(device.state()); });
    }
    bool hasOutput(const QString& name)
    {
        const auto outputs = device.outputs();
        return std::any_of(outputs.begin(), outputs.end(),
                           [&](const auto& o) { return o.name == name; });
    }

    PulseAudio device;
    pulse_testing::Modules modules;
};

// A stream of silence played by pacat under an application's name.
std::unique_ptr<QProcess> play(const QStringList& properties)
{
    auto p = std::make_unique<QProcess>();
    QStringList args{"--playback", "--raw"};
    for (const QString& property : properties)
        args << "--property=" + property;
    p->setStandardInputFile("/dev/zero");
    p->start("pacat", args);
    EXPECT_TRUE(p->waitForStarted());
    return p;
}

void stop(QProcess& p)
{
    p.terminate();
    p.waitForFinished();
}

TEST_F(PulseAudioTest, OutputsCarryTheirTransportWordsInServerOrder)
{
    modules.load(
        "module-combine-sink",
        "sink_name=combined slaves=" + builtInSink +
            ",velotide_test_null sink_properties='device.description=\"Combined Output\"'");
    // A microphone is a source, never an output (its name and description say USB).
    modules.load("module-null-source", "source_name=alsa_input.usb-Blue_Yeti-00.analog-stereo "
                                       "description=\"Yeti Stereo Microphone\"");
    ASSERT_TRUE(waitFor([](const auto& s) { return s.outputs.size() == 9; }));

    const QHash<QString, QString> expected{
        {"Built-in Audio Analog Stereo", "built-in"},
        {"Built-in Audio Digital Stereo (IEC958)", "spdif"},
        {"Scarlett 2i2 USB", "usb"},
        {"GA104 High Definition Audio Controller Digital Stereo (HDMI)", "hdmi"},
        {"DELL U2720Q", "displayport"},
        {"WH-1000XM4", "bluetooth"},
        {"Kitchen", "airplay"},
        {"Dummy Output", "virtual"},
        {"Combined Output", "aggregate"},
    };
    const auto outputs = device.outputs();
    QStringList serverIndexes;
    for (const QString& line : pactl({"list", "short", "sinks"}).split('\n'))
        serverIndexes << line.section('\t', 0, 0);
    QStringList indexes;
    for (const auto& o : outputs) {
        EXPECT_EQ(o.transport, expected.value(o.name, "(unexpected output)"))
            << o.name.toStdString();
        indexes << QString::number(o.id);
    }
    EXPECT_EQ(indexes, serverIndexes)
        << "identifiers are the sinks' indexes, in the server's order";
    EXPECT_EQ(device.defaultOutputName(), "Built-in Audio Analog Stereo");
}

TEST_F(PulseAudioTest, SetDefaultOutputPicksTheFirstOutputOfThatName)
{
    modules.addSink("twin_first", "Living Room Speakers");
    modules.addSink("twin_second", "Living Room Speakers");
    ASSERT_TRUE(waitFor([](const auto& s) { return s.outputs.size() == 10; }));

    for (const QString& before : {builtInSink, QString("twin_second")}) {
        pactl({"set-default-sink", before});
        ASSERT_TRUE(waitFor([&](const auto& s) { return s.defaultOutputName.has_value(); }));
        QFuture<bool> switched = device.setDefaultOutput("Living Room Speakers");
        ASSERT_TRUE(await(switched));
        EXPECT_TRUE(switched.result());
        EXPECT_EQ(pactl({"get-default-sink"}), "twin_first") << "from " << before.toStdString();
        EXPECT_TRUE(
            waitFor([](const auto& s) { return s.defaultOutputName == "Living Room Speakers"; }));
    }

    for (const QString& unknown :
         {QString("living room speakers"), QString("Nowhere"), QString()}) {
        QFuture<bool> refused = device.setDefaultOutput(unknown);
        EXPECT_TRUE(refused.isFinished()) << "an unknown name is answered at once";
        EXPECT_FALSE(refused.result()) << unknown.toStdString();
    }
    EXPECT_EQ(pactl({"get-default-sink"}), "twin_first");
}

TEST_F(PulseAudioTest, ListsEachApplicationPlayingOnceAndLeavesOutCorkedStreams)
{
    QProcess paused;
    paused.start(CORKED_STREAM_PATH, {"paused-player"});
    ASSERT_TRUE(paused.waitForReadyRead());
    ASSERT_EQ(paused.readLine().trimmed(), "ready");

    // Once the later stream shows, the earlier corked one has been seen and left out.
    auto spotify = play({"application.process.binary=spotify", "application.name=Spotify"});
    ASSERT_TRUE(waitFor([](const auto& s) { return !s.processesOutputting.isEmpty(); }));
    EXPECT_EQ(device.processesOutputting(), QStringList{"spotify"});
    const auto streams = [] { return pactl({"list", "short", "sink-inputs"}).count('\n') + 1; };
    auto spotify2 = play({"application.process.binary=spotify"});
    EXPECT_TRUE(spinUntil([&] { return streams() == 3; }));
    auto rhythmbox =
        play({"application.id=org.gnome.Rhythmbox3", "application.process.binary=rhythmbox"});
    EXPECT_TRUE(spinUntil([&] { return streams() == 4; }));
    EXPECT_TRUE(waitFor([](const auto& s) { return s.processesOutputting.size() == 2; }));
    EXPECT_EQ(device.processesOutputting(), (QStringList{"spotify", "org.gnome.Rhythmbox3"}));

    paused.write("play\n");
    EXPECT_TRUE(waitFor([](const auto& s) { return s.processesOutputting.size() == 3; }));
    EXPECT_EQ(device.processesOutputting(),
              (QStringList{"paused-player", "spotify", "org.gnome.Rhythmbox3"}));
    paused.write("pause\n");
    EXPECT_TRUE(waitFor([](const auto& s) { return s.processesOutputting.size() == 2; }));

    stop(*spotify);
    spinFor(std::chrono::milliseconds(100));
    EXPECT_EQ(device.processesOutputting(), (QStringList{"spotify", "org.gnome.Rhythmbox3"}))
        << "the second stream of the same application is still playing";
    stop(*spotify2);
    stop(*rhythmbox);
    paused.closeWriteChannel();
    paused.waitForFinished();
    EXPECT_TRUE(waitFor([](const auto& s) { return s.processesOutputting.isEmpty(); }));
}

TEST_F(PulseAudioTest, NamesTheSoundServerWithItsVersion)
{
    const QString server = device.state().soundServer;
    EXPECT_TRUE(server.startsWith("PulseAudio ") && server.at(11).isDigit())
        << server.toStdString();
}

TEST_F(PulseAudioTest, CopyFollowsTheServerAndAnnouncesChangesOnce)
{
    int announced = 0;
    QObject::connect(&device, &AudioDevice::changed, [&] { ++announced; });

    const QString late = modules.addSink("late_arrival", "Late Arrival");
    EXPECT_TRUE(spinUntil([&] { return hasOutput("Late Arrival"); }));
    EXPECT_TRUE(spinUntil([&] { return announced == 1; }));

    // Five sinks arrive while this thread is busy: the copy is current at once, and the
    // owner hears of it once when its event loop turns.
    announced = 0;
    for (int i = 0; i < 5; ++i)
        modules.addSink(QString("burst_%1").arg(i), QString("Burst %1").arg(i));
    for (int i = 0; i < 200 && device.outputs().size() != 14; ++i)
        QThread::msleep(10);
    EXPECT_EQ(device.outputs().size(), 14);
    EXPECT_EQ(announced, 0);
    spinFor(std::chrono::milliseconds(200));
    EXPECT_EQ(announced, 1);

    // A change the copy does not hold (a volume) is not announced.
    announced = 0;
    pactl({"set-sink-volume", builtInSink, "50%"});
    spinFor(std::chrono::milliseconds(200));
    EXPECT_EQ(announced, 0);

    modules.unload(late);
    EXPECT_TRUE(spinUntil([&] { return !hasOutput("Late Arrival") && announced == 1; }));
    pactl({"set-default-sink", "burst_3"});
    EXPECT_TRUE(
        spinUntil([&] { return device.defaultOutputName() == "Burst 3" && announced == 2; }));
}

TEST_F(PulseAudioTest, ReadsAreSafeFromOtherThreadsWhileTheCopyChanges)
{
    std::atomic<bool> done = false;
    std::atomic<int> reads = 0;
    std::vector<std::thread> readers;
    for (int t = 0; t < 3; ++t) {
        readers.emplace_back([&] {
            while (!done) {
                const auto s = device.state();
                // A consistent copy: the default, when there is one, is one of the outputs.
                if (s.defaultOutputName) {
                    EXPECT_TRUE(std::any_of(s.outputs.begin(), s.outputs.end(), [&](const auto& o) {
                        return o.name == *s.defaultOutputName;
                    }));
                }
                ++reads;
            }
        });
    }
    for (int i = 0; i < 5; ++i) {
        const QString index =
            modules.addSink(QString("churn_%1").arg(i), QString("Churn %1").arg(i));
        pactl({"set-default-sink", QString("churn_%1").arg(i)});
        modules.unload(index);
    }
    done = true;
    for (auto& r : readers)
        r.join();
    EXPECT_GT(reads.load(), 0);
}

} // namespace
