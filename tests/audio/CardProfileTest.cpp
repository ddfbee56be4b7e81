// An onboard card's S/PDIF profile, on a real card: the ALSA dummy card of in-qemu-with-card,
// run by PulseAudio's own card module with an analog and a digital profile.
#include "PulseTools.h"
#include "audio/PulseAudio.h"
#include "common/Wait.h"

#include <gtest/gtest.h>

namespace {

using testing_support::await;
using testing_support::spinUntil;

constexpr auto slowGuest = std::chrono::seconds(60);

TEST(CardProfileTest, InactiveSpdifProfileIsTheOutputItsSinkBecomes)
{
    PulseAudio device;
    const QString digital = QStringLiteral("Built-in Audio Digital Stereo (IEC958)");
    const auto withName = [&] {
        QList<AudioDevice::Output> found;
        for (const auto& o : device.outputs()) {
            if (o.name == digital)
                found << o;
        }
        return found;
    };
    ASSERT_TRUE(spinUntil([&] { return withName().size() == 1; }, slowGuest));
    EXPECT_EQ(withName().constFirst().transport, "spdif");
    EXPECT_EQ(withName().constFirst().id, 0xffffffffu) << "no sink yet";
    EXPECT_EQ(device.defaultOutputName(), "Dummy Output");
    EXPECT_EQ(device.detectTriggerOutput(), digital) << "the first run's pick of the trigger";

    QFuture<bool> switched = device.setDefaultOutput(digital);
    ASSERT_TRUE(await(switched, slowGuest));
    EXPECT_TRUE(switched.result());
    EXPECT_TRUE(
        pulse_testing::pactl({"list", "cards"}).contains("Active Profile: output:iec958-stereo"));
    EXPECT_TRUE(spinUntil([&] { return device.defaultOutputName() == digital; }, slowGuest))
        << "the trigger output is now the current one";
    ASSERT_EQ(withName().size(), 1) << "the profile's output and its sink are one output";
    EXPECT_NE(withName().constFirst().id, 0xffffffffu);
    EXPECT_EQ(withName().constFirst().transport, "spdif");
}

} // namespace
