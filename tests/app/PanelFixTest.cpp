#include "ui/PanelFix.h"

#include <gtest/gtest.h>

namespace {

TEST(PanelFix, ButtonTitles)
{
    EXPECT_FALSE(callToAction(PanelFix::none).has_value()) << "absent, not an empty text";
    EXPECT_EQ(callToAction(PanelFix::openAccessibilitySettings),
              QStringLiteral("Open input access settings"));
    EXPECT_EQ(callToAction(PanelFix::openLocalNetworkSettings),
              QStringLiteral("Open network settings"));
    EXPECT_EQ(callToAction(PanelFix::uninstall)->back(), QChar(0x2026))
        << "one ellipsis character, not three dots";
}

TEST(PanelFix, Actions)
{
    using Kind = PanelFixAction::Kind;
    EXPECT_EQ(panelFixAction(PanelFix::none), PanelFixAction{});
    EXPECT_EQ(panelFixAction(PanelFix::openAccessibilitySettings),
              (PanelFixAction{Kind::openSettings, SettingsPane::inputAccess, true,
                              QStringLiteral("Already installed? Check that velotide-keyd is "
                                             "running, then relaunch")}));
    EXPECT_EQ(panelFixAction(PanelFix::openSoundSettings),
              (PanelFixAction{Kind::openSettings, SettingsPane::sound, false, {}}));
    EXPECT_EQ(panelFixAction(PanelFix::openLocalNetworkSettings),
              (PanelFixAction{Kind::openSettings, SettingsPane::network, false, {}}));
    EXPECT_EQ(panelFixAction(PanelFix::chooseOutput).kind, Kind::openPanelSettings);
}

TEST(SettingsLink, DesktopFromItsNames)
{
    EXPECT_EQ(desktopFromXdgCurrentDesktop(QStringLiteral("ubuntu:GNOME")), Desktop::gnome);
    EXPECT_EQ(desktopFromXdgCurrentDesktop(QStringLiteral("KDE")), Desktop::kde);
    EXPECT_EQ(desktopFromXdgCurrentDesktop(QStringLiteral("XFCE")), Desktop::other);
    EXPECT_EQ(desktopFromXdgCurrentDesktop(QStringLiteral("GNOME-Flashback")), Desktop::other);
    EXPECT_EQ(desktopFromXdgCurrentDesktop(QString()), Desktop::other);
}

TEST(SettingsLink, DesktopPageWhereThereIsOneAndTheHelpPageAlways)
{
    const SettingsLink gnomeSound = settingsLink(SettingsPane::sound, Desktop::gnome);
    EXPECT_EQ(gnomeSound.program, QStringLiteral("gnome-control-center"));
    EXPECT_EQ(gnomeSound.arguments, QStringList{QStringLiteral("sound")});
    const SettingsLink kdeSound = settingsLink(SettingsPane::sound, Desktop::kde);
    EXPECT_EQ(kdeSound.program, QStringLiteral("systemsettings"));
    EXPECT_EQ(kdeSound.arguments, QStringList{QStringLiteral("kcm_pulseaudio")});

    // Input access is the key service's, which no desktop's settings know about.
    for (Desktop desktop : {Desktop::gnome, Desktop::kde, Desktop::other})
        EXPECT_TRUE(settingsLink(SettingsPane::inputAccess, desktop).program.isEmpty());
    EXPECT_TRUE(settingsLink(SettingsPane::loginItems, Desktop::gnome).program.isEmpty());
    EXPECT_TRUE(settingsLink(SettingsPane::sound, Desktop::other).program.isEmpty());

    QStringList sections;
    for (SettingsPane pane : {SettingsPane::inputAccess, SettingsPane::sound, SettingsPane::network,
                              SettingsPane::loginItems}) {
        const QUrl help = settingsLink(pane, Desktop::other).helpPage;
        EXPECT_TRUE(help.isValid());
        EXPECT_EQ(help.scheme(), QStringLiteral("https"));
        EXPECT_EQ(help, settingsLink(pane, Desktop::gnome).helpPage) << "same page everywhere";
        sections.append(help.fragment());
    }
    sections.removeDuplicates();
    EXPECT_EQ(sections.size(), 4) << "each pane has its own section";
}

} // namespace
