#include "keyd/ActiveSession.h"

#include "keyd/Device.h"

#include <gtest/gtest.h>

using namespace keyd;

TEST(KeydActiveSession, readsTheActiveUserOfALogindSeatFile)
{
    EXPECT_EQ(activeUidOf("# This is private data. Do not parse.\nIS_SEAT0=1\nCAN_MULTI_SESSION=1\n"
                          "ACTIVE=2\nACTIVE_UID=1000\nSESSIONS=2 c1\nUIDS=1000 117\n"),
              std::optional<uid_t>(1000));
    EXPECT_EQ(activeUidOf("IS_SEAT0=1\nSESSIONS=\n"), std::nullopt); // nobody in front
    EXPECT_EQ(activeUidOf("ACTIVE_UID=10x0\n"), std::nullopt);
    EXPECT_EQ(activeUidOf("XACTIVE_UID=1000\n"), std::nullopt);
    EXPECT_EQ(readActiveUid("/nonexistent/seat0"), std::nullopt);
}

TEST(KeydActiveSession, admitsTheForegroundUserAndRootOneAtATime)
{
    // Nobody connected.
    EXPECT_EQ(admissionOf(1000, std::nullopt, 1000), HelloStatus::accepted);
    EXPECT_EQ(admissionOf(0, std::nullopt, 1000), HelloStatus::accepted);
    EXPECT_EQ(admissionOf(1001, std::nullopt, 1000), HelloStatus::notActiveSession);
    EXPECT_EQ(admissionOf(1000, std::nullopt, std::nullopt), HelloStatus::notActiveSession);
    EXPECT_EQ(admissionOf(0, std::nullopt, std::nullopt), HelloStatus::accepted);
    // Someone connected who may stay: the newcomer waits.
    EXPECT_EQ(admissionOf(1000, 1000, 1000), HelloStatus::busy);
    // Someone connected whose user went to the background: the new foreground user wins.
    EXPECT_EQ(admissionOf(1001, 1000, 1001), HelloStatus::accepted);
    // A stranger never displaces anybody.
    EXPECT_EQ(admissionOf(1002, 1000, 1001), HelloStatus::notActiveSession);
}

TEST(KeydDeviceRole, picksTheRoleFromTheCapabilities)
{
    EXPECT_EQ(roleOf({"AT Translated Set 2 keyboard", true, true, false}), DeviceRole::keys);
    EXPECT_EQ(roleOf({"USB Keyboard Consumer Control", true, false, false}), DeviceRole::keys);
    EXPECT_EQ(roleOf({"USB Keyboard", false, true, false}), DeviceRole::shiftOnly);
    EXPECT_EQ(roleOf({"Logitech Mouse", false, false, true}), DeviceRole::pointer);
    EXPECT_EQ(roleOf({"Power Button", false, false, false}), DeviceRole::ignored);
    // Its own clones would otherwise look exactly like keyboards with volume keys.
    EXPECT_EQ(
        roleOf({std::string(kClonePrefix) + "AT Translated Set 2 keyboard", true, true, false}),
        DeviceRole::ignored);
}
