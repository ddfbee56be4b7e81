// Routing the computer's sound to an AirPlay receiver: receivers announced by a real Avahi
// daemon on a private link (with-avahi), RAOP outputs made by a private PulseAudio
// (with-pulseaudio), and a stream playing into it.
#include "audio/OutputRoute.h"

#include "PulseTools.h"
#include "audio/PulseAudio.h"
#include "common/LogWatch.h"
#include "common/Wait.h"
#include "discovery/AirPlayBrowser.h"
#include "support/ReadyFuture.h"

#include <QProcess>

#include <gtest/gtest.h>

#include <memory>
#include <vector>

using namespace std::chrono_literals;
using pulse_testing::pactl;
using testing_support::await;
using testing_support::spinUntil;

namespace {

const QString analog = QStringLiteral("Built-in Audio Analog Stereo");

// The sink a `pactl list sinks` block describes, by a line it contains.
QString sinkWith(const QString& line)
{
    for (const QString& block : pactl({QStringLiteral("list"), QStringLiteral("sinks")})
                                    .split(QStringLiteral("Sink #"), Qt::SkipEmptyParts)) {
        if (block.contains(line))
            return block.section(u'\n', 0, 0).trimmed();
    }
    return {};
}

QString sinkForPort(int port)
{
    return sinkWith(QStringLiteral("device.string = \"[10.77.0.1]:%1\"").arg(port));
}

// The sink index the only playing stream plays into.
QString streamSink()
{
    const QString line =
        pactl({QStringLiteral("list"), QStringLiteral("short"), QStringLiteral("sink-inputs")});
    return line.section(u'\t', 1, 1);
}

class OutputRouteTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        ASSERT_TRUE(spinUntil([&] { return audio.state().connected; }, 10s))
            << "run under tests/audio/with-pulseaudio";
        stream.setStandardInputFile(QStringLiteral("/dev/zero"));
        stream.start(QStringLiteral("pacat"), {QStringLiteral("--property=application.name=Test")});
        ASSERT_TRUE(spinUntil([&] { return !audio.state().processesOutputting.isEmpty(); }, 10s));
    }

    void TearDown() override
    {
        stream.kill();
        stream.waitForFinished();
        // (PipeWire's server has no such output: nothing to put back there.)
        QProcess::execute(QStringLiteral("pactl"),
                          {QStringLiteral("set-default-sink"),
                           QStringLiteral("alsa_output.pci-0000_00_1f.3.analog-stereo")});
    }

    // `elsewhere`: by the other host of with-remote-receivers.
    void announce(const QString& instance, int port, bool elsewhere = false)
    {
        auto publisher = std::make_unique<QProcess>();
        if (elsewhere) {
            QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
            env.insert(QStringLiteral("DBUS_SYSTEM_BUS_ADDRESS"),
                       qEnvironmentVariable("VELOTIDE_REMOTE_BUS"));
            publisher->setProcessEnvironment(env);
        }
        publisher->setProcessChannelMode(QProcess::MergedChannels);
        publisher->start(QStringLiteral("avahi-publish"),
                         {QStringLiteral("-s"), instance, QStringLiteral("_raop._tcp"),
                          QString::number(port), QStringLiteral("tp=UDP"), QStringLiteral("et=0,1"),
                          QStringLiteral("cn=0,1")});
        ASSERT_TRUE(spinUntil([&] { return publisher->readAll().contains("Established"); }, 10s))
            << "run under tests/common/in-netns tests/discovery/with-avahi";
        publishers.push_back(std::move(publisher));
    }

    OutputRoute::Outcome route(const QString& name, OutputRoute::Check check = {})
    {
        const QFuture<OutputRoute::Outcome> outcome = router.route(name, std::move(check));
        EXPECT_TRUE(await(outcome, 30s));
        return outcome.isFinished() ? outcome.result() : OutputRoute::Outcome{};
    }

    PulseAudio audio;
    AirPlayBrowser airplay;
    OutputRoute router{audio, airplay};
    QProcess stream;
    std::vector<std::unique_ptr<QProcess>> publishers;
    LogWatch log;
};

} // namespace

TEST_F(OutputRouteTest, AnOutputThatCarriesTheNameIsMadeTheDefaultAndTheStreamFollows)
{
    const OutputRoute::Outcome outcome = route(QStringLiteral("Kitchen"));
    EXPECT_TRUE(outcome.ok);
    EXPECT_EQ(outcome.output, QStringLiteral("Kitchen"));
    EXPECT_EQ(streamSink(), sinkWith(QStringLiteral("Name: raop_output.Kitchen")));
    EXPECT_EQ(log.lines(), QStringList{QStringLiteral(
                               "Routed audio to 'Kitchen' via PulseAudio (now 'Kitchen')")});
}

TEST_F(OutputRouteTest, AWrongReceiverOfTheNameGivesWayToTheNextOne)
{
    announce(QStringLiteral("B8E9378D4E2F@Bedroom"), 7000);
    announce(QStringLiteral("B8E9378D4E30@Bedroom"), 7001);
    QStringList asked;
    const OutputRoute::Outcome outcome =
        route(QStringLiteral("Bedroom"), [&](const QString& receiverID) {
            asked.append(receiverID);
            return readyFuture(receiverID == QStringLiteral("B8E9378D4E30"));
        });
    EXPECT_TRUE(outcome.ok);
    EXPECT_EQ(outcome.output, QStringLiteral("Bedroom"));
    EXPECT_EQ(asked, (QStringList{QStringLiteral("B8E9378D4E2F"), QStringLiteral("B8E9378D4E30")}));
    const QString right = sinkForPort(7001);
    EXPECT_FALSE(right.isEmpty());
    EXPECT_EQ(streamSink(), right);
    EXPECT_TRUE(spinUntil([] { return sinkForPort(7000).isEmpty(); }, 5s))
        << "the wrong receiver's output is taken away";
    EXPECT_EQ(
        log.lines(),
        (QStringList{QStringLiteral("'Bedroom' is ambiguous (2 receivers) — trying the next one"),
                     QStringLiteral("Routed audio to 'Bedroom' on retry (now 'Bedroom')")}));
    pactl({QStringLiteral("unload-module"), QStringLiteral("module-raop-sink")});
}

TEST_F(OutputRouteTest, WhenNoReceiverOfTheNameIsTheSpeakerThePreviousOutputIsRestored)
{
    announce(QStringLiteral("B8E9378D4E2F@Bedroom"), 7000);
    announce(QStringLiteral("B8E9378D4E30@Bedroom"), 7001);
    const QString previous = streamSink();
    const OutputRoute::Outcome outcome =
        route(QStringLiteral("Bedroom"), [](const QString&) { return readyFuture(false); });
    EXPECT_FALSE(outcome.ok);
    EXPECT_EQ(outcome.output, analog);
    EXPECT_EQ(streamSink(), previous);
    EXPECT_TRUE(
        spinUntil([] { return sinkForPort(7000).isEmpty() && sinkForPort(7001).isEmpty(); }, 5s));
    EXPECT_EQ(log.lines().last(),
              QStringLiteral("Could not verify 'Bedroom' — restored '") + analog + u'\'');
}

TEST_F(OutputRouteTest, AReceiverThatLeavesBeforeItIsReachedLeavesTheOutputAlone)
{
    announce(QStringLiteral("B8E9378D4E2F@Bedroom"), 7000);
    ASSERT_TRUE(await(airplay.identities(QStringLiteral("Bedroom"))));
    publishers.clear();
    ASSERT_TRUE(spinUntil(
        [] {
            QProcess browse;
            browse.start(QStringLiteral("avahi-browse"),
                         {QStringLiteral("-ptk"), QStringLiteral("_raop._tcp")});
            browse.waitForFinished();
            return !browse.readAll().contains("Bedroom");
        },
        10s));
    const OutputRoute::Outcome outcome = route(QStringLiteral("Bedroom"));
    EXPECT_FALSE(outcome.ok);
    EXPECT_EQ(outcome.output, analog);
    EXPECT_EQ(log.lines().last(),
              QStringLiteral("No AirPlay receiver named 'Bedroom' — leaving output on '") + analog +
                  u'\'');
}

// Run against a server without module-raop-sink, whose discovery passes over receivers of its
// own host: the output never shows.
TEST_F(OutputRouteTest, WithoutRaopSinkAnOutputThatNeverShowsLeavesTheOutputAlone)
{
    announce(QStringLiteral("B8E9378D4E2F@Bedroom"), 7000);
    const QString previous = streamSink();
    const OutputRoute::Outcome outcome = route(QStringLiteral("Bedroom"));
    EXPECT_FALSE(outcome.ok);
    EXPECT_EQ(outcome.output, analog);
    EXPECT_EQ(streamSink(), previous);
    EXPECT_EQ(log.lines().last(),
              QStringLiteral("Output did not change within 8s after choosing 'Bedroom'"));
}

// Run against PipeWire's PulseAudio service, which has no module-raop-sink: its discovery makes
// the output for another host's receiver, and that output does not say which receiver it is.
TEST_F(OutputRouteTest, OnPipeWireTheDiscoveredOutputOfTheReceiverTakesTheStream)
{
    announce(QStringLiteral("B8E9378D4E2F@Bedroom"), 7000, true);
    QStringList asked;
    const OutputRoute::Outcome outcome =
        route(QStringLiteral("Bedroom"), [&](const QString& receiverID) {
            asked.append(receiverID);
            return readyFuture(true);
        });
    EXPECT_TRUE(outcome.ok);
    EXPECT_EQ(outcome.output, QStringLiteral("Bedroom"));
    EXPECT_EQ(asked, QStringList{QStringLiteral("B8E9378D4E2F")});
    EXPECT_EQ(streamSink(), sinkWith(QStringLiteral("Description: Bedroom")));
    EXPECT_EQ(log.lines().last(),
              QStringLiteral("Routed audio to 'Bedroom' via the sound server (now 'Bedroom')"));
}
