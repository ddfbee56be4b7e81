// The start-up rule that needs no speakers: the first run's pick of the optically wired zone.
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

// Playing line in through an optical input beats an idle optical input, which beats a zone
// merely playing line in; the first of equals wins.
TEST(OpticalZonePick, InOrderOfLikelihood)
{
    EXPECT_EQ(pickOpticalZone({zone("Kitchen", true, false), zone("Den", false, true),
                               zone("Living Room", true, true)}),
              QStringLiteral("Living Room"));
    EXPECT_EQ(pickOpticalZone({zone("Kitchen", true, false), zone("Den", false, true),
                               zone("Bar", false, true)}),
              QStringLiteral("Den"));
    EXPECT_EQ(pickOpticalZone({zone("Office", false, false), zone("Kitchen", true, false),
                               zone("Patio", true, false)}),
              QStringLiteral("Kitchen"));
    EXPECT_EQ(pickOpticalZone({zone("Office", false, false)}), std::nullopt);
}

} // namespace
