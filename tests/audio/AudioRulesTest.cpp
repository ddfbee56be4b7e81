#include "audio/AudioDevice.h"
#include "audio/CardProfiles.h"
#include "audio/SinkTransport.h"
#include "common/QtPrinters.h"

#include <gtest/gtest.h>

namespace {

struct TransportCase {
    const char* what;
    SinkFacts sink;
    const char* word;
};

SinkFacts alsa(const char* bus, const char* profile, const char* alsaName = "")
{
    return {{{"device.api", "alsa"},
             {"device.bus", bus},
             {"device.class", "sound"},
             {"device.profile.name", profile},
             {"alsa.name", alsaName}},
            "module-alsa-card.c",
            {}};
}

// The sinks of test.pa, read from a real server, are the other cases (PulseAudioTest).
TEST(SinkTransportTest, WordsComeFromTheSinkProperties)
{
    const TransportCase cases[] = {
        {"RAOP by its api", {{{"device.api", "raop"}}, "PipeWire", {}}, "airplay"},
        {"PipeWire's RAOP sink, a virtual node",
         {{{"node.virtual", "true"}, {"raop.ip", "192.0.2.7"}}, "PipeWire", {}},
         "airplay"},
        {"Bluetooth by bus",
         {{{"device.bus", "bluetooth"}}, "module-bluez5-device.c", {}},
         "bluetooth"},
        {"Bluetooth by api", {{{"device.api", "bluez5"}}, "PipeWire", {}}, "bluetooth"},
        {"a USB interface's optical output is still USB", alsa("usb", "iec958-stereo"), "usb"},
        {"S/PDIF by active port",
         {{{"device.bus", "pci"}, {"device.class", "sound"}},
          "module-alsa-card.c",
          "iec958-stereo-output"},
         "spdif"},
        {"HDMI/DP jack name stays HDMI", alsa("pci", "hdmi-stereo-extra2", "HDMI/DP,pcm=8"),
         "hdmi"},
        {"DisplayPort spelled out", alsa("pci", "hdmi-surround", "DisplayPort 2"), "displayport"},
        {"Thunderbolt", {{{"device.bus", "thunderbolt"}}, "module-alsa-card.c", {}}, "thunderbolt"},
        {"filter sink", {{{"device.class", "filter"}}, "module-remap-sink.c", {}}, "virtual"},
        {"PipeWire virtual node", {{{"node.virtual", "true"}}, "PipeWire", {}}, "virtual"},
        {"SoC analog", alsa("platform", "stereo-fallback"), "built-in"},
        {"FireWire", {{{"device.bus", "firewire"}}, "module-alsa-card.c", {}}, "other"},
        {"nothing known", {}, "other"},
    };
    for (const TransportCase& c : cases)
        EXPECT_EQ(transportWord(c.sink), QString::fromLatin1(c.word)) << c.what;
}

using Outputs = QList<AudioDevice::Output>;

AudioDevice::Output output(quint32 id, const char* name, const char* transport)
{
    return {id, name, transport, {}};
}

struct DetectCase {
    const char* what;
    Outputs outputs;
    std::optional<QString> defaultName;
    std::optional<QString> expected;
};

TEST(DetectTriggerOutputTest, PrefersTheCurrentExternalOutputThenSpdifThenUsb)
{
    const AudioDevice::Output builtIn = output(1, "Speakers", "built-in");
    const AudioDevice::Output spdif = output(2, "Digital Out", "spdif");
    const AudioDevice::Output usb = output(3, "USB DAC", "usb");
    const AudioDevice::Output hdmi = output(4, "Monitor", "hdmi");
    const AudioDevice::Output usb2 = output(5, "Second DAC", "usb");
    const DetectCase cases[] = {
        {"a USB default beats another S/PDIF output", {builtIn, spdif, usb}, "USB DAC", "USB DAC"},
        {"S/PDIF before USB without a default", {usb, spdif}, std::nullopt, "Digital Out"},
        {"a default no output has", {usb, spdif}, "Gone", "Digital Out"},
        {"the first USB output when there is no S/PDIF",
         {builtIn, usb2, usb},
         "Speakers",
         "Second DAC"},
        {"only HDMI and built-in", {hdmi, builtIn}, "Monitor", std::nullopt},
        {"never AirPlay, Bluetooth, virtual or aggregate",
         {output(6, "Kitchen", "airplay"), output(7, "Headphones", "bluetooth"),
          output(8, "Null", "virtual"), output(9, "Both", "aggregate"),
          output(10, "Dock", "thunderbolt"), output(11, "Screen", "displayport"),
          output(12, "Card", "other")},
         "Kitchen",
         std::nullopt},
        {"of two outputs named like the default, the first is judged",
         {spdif, output(20, "Twin", "built-in"), output(21, "Twin", "usb")},
         "Twin",
         "Digital Out"},
        {"nothing at all", {}, std::nullopt, std::nullopt},
    };
    for (const DetectCase& c : cases)
        EXPECT_EQ(AudioDevice::detectTriggerOutput(c.outputs, c.defaultName), c.expected) << c.what;
}

// An onboard card as PulseAudio describes it, running its analog profile.
CardFacts onboardCard(const char* bus, const char* activeProfile)
{
    return {{{"device.description", "Built-in Audio"}, {"device.bus", bus}, {"device.api", "alsa"}},
            activeProfile,
            {{"output:analog-stereo+input:analog-stereo", "Analog Stereo Duplex", 1, 6565},
             {"output:iec958-ac3-surround-51+input:analog-stereo",
              "Digital Surround 5.1 (IEC958/AC3) Output + Analog Stereo Input", 1, 265},
             {"output:iec958-stereo", "Digital Stereo (IEC958) Output", 1, 5500},
             {"output:iec958-stereo+input:analog-stereo",
              "Digital Stereo (IEC958) Output + Analog Stereo Input", 1, 5565},
             {"output:iec958-stereo+input:iec958-stereo", "Digital Stereo Duplex (IEC958)", 1, 5600,
              false},
             {"output:hdmi-stereo", "Digital Stereo (HDMI) Output", 1, 5900},
             {"input:iec958-stereo", "Digital Stereo (IEC958) Input", 0, 60},
             {"off", "Off", 0, 0}}};
}

TEST(CardProfilesTest, InactiveSpdifProfilesBecomeOutputsNamedAsTheirSinks)
{
    EXPECT_EQ(inactiveSpdifOutputs(onboardCard("pci", "output:analog-stereo+input:analog-stereo")),
              (QList<ProfileOutput>{{"output:iec958-stereo+input:analog-stereo", "iec958-stereo",
                                     "Built-in Audio Digital Stereo (IEC958)"},
                                    {"output:iec958-ac3-surround-51+input:analog-stereo",
                                     "iec958-ac3-surround-51",
                                     "Built-in Audio Digital Surround 5.1 (IEC958/AC3)"}}))
        << "the most preferred available profile of each mapping, stereo first; no HDMI";
    EXPECT_EQ(inactiveSpdifOutputs(onboardCard("pci", "output:iec958-stereo")),
              (QList<ProfileOutput>{{"output:iec958-ac3-surround-51+input:analog-stereo",
                                     "iec958-ac3-surround-51",
                                     "Built-in Audio Digital Surround 5.1 (IEC958/AC3)"}}))
        << "the active mapping has its sink already";
    EXPECT_TRUE(inactiveSpdifOutputs(onboardCard("usb", "off")).isEmpty())
        << "a USB interface's optical output is a USB output, as its sink would be";
}

} // namespace
