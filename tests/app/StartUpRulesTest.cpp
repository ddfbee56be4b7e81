// The start-up rules that need no speakers: the first run's pick of the optically wired zone,
// the network watch's first report, and the diagnostics text.
#include "app/BasicDiagnostics.h"
#include "app/NetworkWatch.h"
#include "app/OpticalZonePick.h"

#include <gtest/gtest.h>

namespace {

ZoneState zone(const QString& name, bool playingLineInput, bool nativeOptical)
{
    ZoneState state;
    state.device.name = name;
    state.device.host = QStringLiteral("127.0.0.1");
    state.isPlayingLineInput = playingLineInput;
    state.hasNativeOptical = nativeOptical;
    return state;
}

TEST(OpticalZonePick, PlayingLineInWithAnOpticalInputWinsOverEverything)
{
    EXPECT_EQ(pickOpticalZone({zone("Kitchen", true, false), zone("Den", false, true),
                               zone("Living Room", true, true)}),
              QStringLiteral("Living Room"));
}

TEST(OpticalZonePick, AnIdleOpticalInputWinsOverAZoneMerelyPlayingLineIn)
{
    EXPECT_EQ(pickOpticalZone({zone("Kitchen", true, false), zone("Den", false, true),
                               zone("Bar", false, true)}),
              QStringLiteral("Den"));
}

TEST(OpticalZonePick, LineInAloneIsTheLastResort)
{
    EXPECT_EQ(pickOpticalZone({zone("Office", false, false), zone("Kitchen", true, false),
                               zone("Patio", true, false)}),
              QStringLiteral("Kitchen"));
}

TEST(OpticalZonePick, NothingQualifies)
{
    EXPECT_EQ(pickOpticalZone({zone("Office", false, false)}), std::nullopt);
    EXPECT_EQ(pickOpticalZone({}), std::nullopt);
}

TEST(NetworkWatch, FirstUsableReportIsNoChangeLaterOnesAreOneEach)
{
    int changes = 0;
    NetworkWatch watch([&changes] { ++changes; });
    watch.report(false);
    watch.report(true);
    EXPECT_EQ(changes, 0);
    watch.report(false);
    EXPECT_EQ(changes, 0);
    watch.report(true);
    EXPECT_EQ(changes, 1);
    watch.report(true);
    EXPECT_EQ(changes, 2);
}

TEST(BasicDiagnostics, NamesTheStateTheKeysAreDecidedBy)
{
    BasicDiagnostics d;
    d.version = QStringLiteral("1.2.3");
    d.speaker = QStringLiteral("Living Room");
    d.connected = true;
    d.volume = 27;
    d.muted = true;
    d.armedState = ArmedState::wrongOutput(std::nullopt, QStringLiteral("Optical"));
    d.keyCapture = QStringLiteral("X11");
    d.inputAccess = true;
    d.tapEnabled = true;
    d.triggerOutput = QStringLiteral("Optical");
    d.triggerConfigured = true;
    d.logTail = QStringLiteral("line one\nline two");
    const QStringList lines = d.text().split(u'\n');
    EXPECT_EQ(lines.first(), QStringLiteral("Velotide 1.2.3"));
    EXPECT_TRUE(lines.contains(QStringLiteral("Volume: 27 (muted)")));
    EXPECT_TRUE(
        lines.contains(QStringLiteral("Volume keys: not armed — output is unknown, not Optical")));
    EXPECT_TRUE(lines.contains(QStringLiteral("Current output: (none)")));
    EXPECT_FALSE(lines.contains(QStringLiteral("Settings: the last save failed")));
    EXPECT_EQ(lines.mid(lines.size() - 2), QStringList({"line one", "line two"}));

    d.speaker.clear();
    d.triggerOutput.clear();
    d.saveFailed = true;
    const QStringList again = d.text().split(u'\n');
    EXPECT_TRUE(again.contains(QStringLiteral("Speaker: (not chosen)")));
    EXPECT_TRUE(again.contains(QStringLiteral("Trigger output: (any output)")));
    EXPECT_TRUE(again.contains(QStringLiteral("Settings: the last save failed")));
}

} // namespace
