#include "ui/panel/PanelFix.h"

#include <gtest/gtest.h>

namespace {

TEST(PanelFix, NoFixHasNoButtonAndInputAccessIsExplained)
{
    EXPECT_FALSE(callToAction(PanelFix::none).has_value()) << "absent, not an empty text";
    EXPECT_EQ(callToAction(PanelFix::uninstall)->back(), QChar(0x2026))
        << "one ellipsis character, not three dots";
    const PanelFixAction access = panelFixAction(PanelFix::openAccessibilitySettings);
    EXPECT_EQ(access.pane, SettingsPane::inputAccess);
    EXPECT_TRUE(access.explainInputAccess);
    EXPECT_FALSE(panelFixAction(PanelFix::openSoundSettings).explainInputAccess);
}

TEST(SettingsLink, DesktopFromItsNamesAndAHelpPageForEveryPane)
{
    EXPECT_EQ(desktopFromXdgCurrentDesktop(QStringLiteral("ubuntu:GNOME")), Desktop::gnome);
    EXPECT_EQ(desktopFromXdgCurrentDesktop(QStringLiteral("KDE")), Desktop::kde);
    EXPECT_EQ(desktopFromXdgCurrentDesktop(QStringLiteral("GNOME-Flashback")), Desktop::other);

    // Input access is the key service's, which no desktop's settings know about.
    EXPECT_TRUE(settingsLink(SettingsPane::inputAccess, Desktop::gnome).program.isEmpty());
    QStringList sections;
    for (SettingsPane pane : {SettingsPane::inputAccess, SettingsPane::sound, SettingsPane::network,
                              SettingsPane::loginItems})
        sections.append(settingsLink(pane, Desktop::other).helpPage.fragment());
    sections.removeDuplicates();
    EXPECT_EQ(sections.size(), 4);
}

} // namespace
