// The plain scans that read a zone group state answer.
#include "discovery/TopologyScan.h"

#include <gtest/gtest.h>

using namespace ZoneTopology;

namespace {

// A home theatre (soundbar with two surrounds and a sub) grouped with a kitchen player,
// and a bedroom on its own, as a player writes it: escaped inside the SOAP answer.
const QString household = QStringLiteral(
    "<ZoneGroups>"
    "<ZoneGroup Coordinator=\"RINCON_AAA01400\" ID=\"RINCON_AAA01400:12\">"
    "<ZoneGroupMember UUID=\"RINCON_AAA01400\" ZoneName=\"Living Room\" Location=\"x\">"
    "<Satellite UUID=\"RINCON_SUB01400\" ZoneName=\"Living Room\" Invisible=\"1\"/>"
    "<Satellite UUID=\"rincon_ls01400\" ZoneName=\"Living Room\" Invisible=\"1\"/>"
    "<Satellite UUID=\"RINCON_RS01400\" ZoneName=\"Living Room\" Invisible=\"0\"/>"
    "</ZoneGroupMember>"
    "<ZoneGroupMember UUID=\"RINCON_KIT01400\" ZoneName=\"Kitchen\"/>"
    "</ZoneGroup>"
    "<ZoneGroup Coordinator=\"RINCON_BED01400\" ID=\"RINCON_BED01400:3\">"
    "<ZoneGroupMember UUID=\"rincon_bed01400\" ZoneName=\"Bedroom\"/>"
    "<ZoneGroupMember UUID=\"RINCON_BDSUB1400\" ZoneName=\"Bedroom\" Invisible=\"1\"/>"
    "</ZoneGroup>"
    "</ZoneGroups>");

QString escaped(QString text)
{
    return text.replace("&", "&amp;")
        .replace("<", "&lt;")
        .replace(">", "&gt;")
        .replace("\"", "&quot;");
}

TEST(TopologyTags, FindsOpeningTagsWithAttributesInOrder)
{
    const QString text = "<a x=\"1\"><a><b y=\"2\"/><a  z=\"3\" >text</a><ab q=\"4\"/>";
    EXPECT_EQ(tags(u"a", text), (QStringList{"<a x=\"1\">", "<a  z=\"3\" >"}));
    EXPECT_EQ(tags(u"b", text), QStringList{"<b y=\"2\"/>"});
    EXPECT_TRUE(tags(u"c", text).isEmpty());
    EXPECT_TRUE(tags(u"a", u"<a x=\"never closed").isEmpty());
}

TEST(TopologyTags, ReadsAttributesAsTheyStand)
{
    const QString tag = "<ZoneGroupMember UUID=\"RINCON_1\" ZoneName=\"Tom &amp; Jo\" Empty=\"\">";
    EXPECT_EQ(attribute(u"UUID", tag), "RINCON_1");
    EXPECT_EQ(attribute(u"ZoneName", tag), "Tom &amp; Jo");
    EXPECT_EQ(attribute(u"Empty", tag), "");
    EXPECT_EQ(attribute(u"Invisible", tag), std::nullopt);
    EXPECT_EQ(attribute(u"UUID", u"<x UUID='single'>"), std::nullopt);
    EXPECT_EQ(attribute(u"UUID", u"<x UUID=\"unterminated>"), std::nullopt);
}

TEST(TopologyInvisible, CollectsInvisibleMembersAndSatellitesUpperCased)
{
    EXPECT_EQ(invisibleUIDs(escaped(household)),
              (QSet<QString>{"RINCON_SUB01400", "RINCON_LS01400", "RINCON_BDSUB1400"}));
    EXPECT_EQ(invisibleUIDs(household), invisibleUIDs(escaped(household)));
    EXPECT_TRUE(invisibleUIDs("<ZoneGroupMember UUID=\"RINCON_A\" Invisible=\"0\"/>").isEmpty());
    EXPECT_TRUE(invisibleUIDs("").isEmpty());
}

TEST(TopologyGroups, FindsTheGroupOfAPlayerWhateverTheLetterCase)
{
    const auto living = groupInfo("RINCON_KIT01400", household);
    ASSERT_TRUE(living);
    EXPECT_EQ(living->coordinator, "RINCON_AAA01400");
    EXPECT_EQ(living->members, (QStringList{"RINCON_AAA01400", "RINCON_KIT01400"}));

    const auto bedroom = groupInfo("rincon_BED01400", household);
    ASSERT_TRUE(bedroom);
    EXPECT_EQ(bedroom->coordinator, "RINCON_BED01400");
    EXPECT_EQ(bedroom->members, (QStringList{"RINCON_BED01400", "RINCON_BDSUB1400"}));

    // Satellites are not members of their own.
    EXPECT_EQ(groupInfo("RINCON_SUB01400", household), std::nullopt);
    EXPECT_EQ(groupInfo("RINCON_NOPE", household), std::nullopt);
}

// A group without a coordinator is skipped, and one group's members never leak into the next.
TEST(TopologyGroups, SkipsGroupsWithoutCoordinatorAndKeepsMembersToTheirGroup)
{
    const QString text = "<ZoneGroup ID=\"x\"><ZoneGroupMember UUID=\"RINCON_A\"/></ZoneGroup>"
                         "<ZoneGroup Coordinator=\"RINCON_B\"><ZoneGroupMember UUID=\"RINCON_A\"/>"
                         "<ZoneGroupMember UUID=\"RINCON_B\"/></ZoneGroup>"
                         "<ZoneGroup Coordinator=\"RINCON_C\">"
                         "<ZoneGroupMember UUID=\"RINCON_C\"/></ZoneGroup>";
    const auto info = groupInfo("RINCON_A", text);
    ASSERT_TRUE(info);
    EXPECT_EQ(info->coordinator, "RINCON_B");
    EXPECT_EQ(info->members, (QStringList{"RINCON_A", "RINCON_B"}));
    EXPECT_EQ(groupInfo("RINCON_C", text)->members, QStringList{"RINCON_C"});
}

} // namespace
