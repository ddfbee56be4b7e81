#include "PulseTools.h"
#include "audio/PulseAudio.h"
#include "common/Wait.h"

#include <QProcess>

#include <gtest/gtest.h>

#include <signal.h>

namespace {

using testing_support::spinFor;
using testing_support::spinUntil;

bool isEmpty(const AudioDevice& device)
{
    const AudioDevice::State s = device.state();
    return !s.connected && s.outputs.isEmpty() && !s.defaultOutputName &&
           s.processesOutputting.isEmpty() && !device.detectTriggerOutput();
}

bool isFull(const AudioDevice& device)
{
    const AudioDevice::State s = device.state();
    return s.connected && s.outputs.size() == 8 &&
           s.defaultOutputName == "Built-in Audio Analog Stereo";
}

// The daemon of with-pulseaudio is stopped and the same daemon, on the same socket, is
// started again by this test.
TEST(PulseAudioReconnectTest, CopyEmptiesWhenTheServerGoesAndRefillsWhenItReturns)
{
    const pid_t daemon = qEnvironmentVariableIntValue("VELOTIDE_PULSE_PID");
    const QString start = qEnvironmentVariable("VELOTIDE_PULSE_START");
    ASSERT_TRUE(daemon > 0 && !start.isEmpty()) << "run through with-pulseaudio";

    PulseAudio device;
    int announced = 0;
    QObject::connect(&device, &AudioDevice::changed, [&] { ++announced; });
    ASSERT_TRUE(spinUntil([&] { return isFull(device); }));
    ASSERT_TRUE(spinUntil([&] { return announced == 1; }));

    ASSERT_EQ(::kill(daemon, SIGTERM), 0);
    ASSERT_TRUE(spinUntil([&] { return isEmpty(device); }));
    EXPECT_TRUE(spinUntil([&] { return announced == 2; }));

    QFuture<bool> refused = device.setDefaultOutput("Kitchen");
    EXPECT_TRUE(refused.isFinished()) << "no server: answered at once";
    EXPECT_FALSE(refused.result());

    // A backend made while there is no server at all starts empty and waits as well.
    PulseAudio latecomer;
    spinFor(std::chrono::milliseconds(500));
    EXPECT_TRUE(isEmpty(latecomer));

    QProcess restarted;
    restarted.start(start, {});
    ASSERT_TRUE(restarted.waitForStarted());
    EXPECT_TRUE(spinUntil([&] { return isFull(device); }));
    EXPECT_TRUE(spinUntil([&] { return isFull(latecomer); }));
    EXPECT_TRUE(spinUntil([&] { return announced == 3; }));
    EXPECT_EQ(device.detectTriggerOutput(), "Built-in Audio Digital Stereo (IEC958)");

    // And it still follows the server after coming back.
    pulse_testing::pactl(
        {"set-default-sink", "alsa_output.usb-Focusrite_Scarlett_2i2_USB-00.analog-stereo"});
    EXPECT_TRUE(spinUntil([&] { return device.defaultOutputName() == "Scarlett 2i2 USB"; }));

    restarted.terminate();
    restarted.waitForFinished();
    EXPECT_TRUE(spinUntil([&] { return isEmpty(device); }));
}

} // namespace
