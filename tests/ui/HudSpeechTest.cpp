#include "ui/HudSpeech.h"

#include "common/QtPrinters.h"

#include <gtest/gtest.h>

namespace {

TEST(AnnouncementText, NamesTheStateAndSpeaker)
{
    EXPECT_EQ(announcementText({40, false, true, "Kitchen"}), "Kitchen unreachable");
    EXPECT_EQ(announcementText({40, true, true, "Kitchen"}), "Kitchen unreachable");
    EXPECT_EQ(announcementText({40, true, false, "Kitchen"}), "Kitchen, muted");
    EXPECT_EQ(announcementText({40, true, false, ""}), "Muted");
    EXPECT_EQ(announcementText({40, false, false, "Kitchen"}), "Kitchen, volume 40 percent");
    EXPECT_EQ(announcementText({7, false, false, ""}), "Volume 7 percent");
    // A speaker named like a placeholder stays as it is.
    EXPECT_EQ(announcementText({5, false, false, "%2 Room"}), "%2 Room, volume 5 percent");
}

// That a burst speaks only its first level and the one after its last press is heard through
// AT-SPI in the announcer's test.
TEST(AnnouncementSchedule, IsolatedChangeIsSpokenAtOnceAndRepeatedUnlessCancelled)
{
    AnnouncementSchedule schedule;
    EXPECT_EQ(schedule.announce("Volume 40 percent", true, 1.0), "Volume 40 percent");
    EXPECT_FALSE(schedule.advance(1.29));
    EXPECT_EQ(schedule.advance(1.3), "Volume 40 percent");
    EXPECT_FALSE(schedule.nextWake());
    EXPECT_FALSE(schedule.advance(5.0));

    schedule.announce("Volume 40 percent", true, 6.0);
    schedule.cancel();
    EXPECT_FALSE(schedule.advance(7.0));
    EXPECT_EQ(schedule.announce("Volume 42 percent", true, 7.1), "Volume 42 percent")
        << "after a cancel the next level is spoken at once";
}

TEST(AnnouncementSchedule, MutedAndUnreachableInterruptAPendingLevel)
{
    AnnouncementSchedule schedule;
    schedule.announce("Volume 40 percent", true, 0);
    EXPECT_EQ(schedule.announce("Muted", false, 0.1), "Muted");
    EXPECT_FALSE(schedule.advance(0.3)) << "the level's repeat was replaced";
    EXPECT_EQ(schedule.advance(0.4), "Muted");
    EXPECT_EQ(schedule.announce("Den unreachable", false, 0.5), "Den unreachable");
    EXPECT_EQ(schedule.announce("Den unreachable", false, 0.6), "Den unreachable");
}

} // namespace
