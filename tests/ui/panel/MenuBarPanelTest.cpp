// The panel's rules that no process test reaches, in-process: what the menus hold and send,
// the not-connected texts, the reopen pause and the slider under a drag.
#include "ui/panel/MenuBarPanel.h"

#include "common/QtPrinters.h"
#include "common/Wait.h"
#include "ui/panel/ElidedLabel.h"
#include "ui/panel/PanelWindow.h"
#include "ui/panel/SymbolButton.h"
#include "ui/panel/VolumeSlider.h"

#include <QAccessible>
#include <QComboBox>
#include <QSystemTrayIcon>

#include <gtest/gtest.h>

using testing_support::spinFor;
using testing_support::spinUntil;

namespace {

QStringList titles(const QComboBox* box)
{
    QStringList out;
    for (int i = 0; i < box->count(); ++i)
        out.append(box->itemText(i));
    return out;
}

class MenuBarPanelTest : public ::testing::Test {
protected:
    PanelWindow& window() { return *static_cast<PanelWindow*>(panel.window()); }

    Settings saved;
    MenuBarPanel panel{saved};
};

TEST_F(MenuBarPanelTest, SavedChoicesStaySelectedAndMenusRefillOnlyOnChange)
{
    saved.speaker = QStringLiteral("Den");
    saved.route = Settings::Route::Airplay;
    saved.triggerOutput = QStringLiteral("TV");
    PanelSnapshot snapshot;
    snapshot.speakerChoices = QList<SpeakerChoice>{
        {"Kitchen", "Kitchen", Settings::Route::Optical},
        {"Den (network)", "Den", Settings::Route::Network},
        {"Den (AirPlay)", "Den", Settings::Route::Airplay},
    };
    snapshot.outputChoices = QStringList{QStringLiteral("Built-in Audio")};
    panel.apply(snapshot);
    EXPECT_EQ(window().speakerPopup->currentText(), "Den (AirPlay)") << "name and route match";
    EXPECT_EQ(titles(window().outputPopup),
              (QStringList{"Any output", "Built-in Audio", "TV (not connected)"}));
    EXPECT_EQ(window().outputPopup->currentText(), "TV (not connected)");

    saved.speaker = QStringLiteral("Attic");
    snapshot.speakerChoices->removeLast();
    panel.apply(snapshot);
    EXPECT_EQ(titles(window().speakerPopup), (QStringList{"Kitchen", "Den (network)", "Attic"}))
        << "a saved speaker not found now is added";
    EXPECT_EQ(window().speakerPopup->currentText(), "Attic");

    int refills = 0;
    QObject::connect(window().speakerPopup->model(), &QAbstractItemModel::rowsInserted,
                     [&refills] { ++refills; });
    panel.apply(snapshot);
    EXPECT_EQ(refills, 0) << "the same titles leave the menu alone";

    std::vector<std::pair<QString, Settings::Route>> speakers;
    QStringList triggers;
    QObject::connect(
        &panel, &MenuBarPanel::panelDidChooseSpeaker,
        [&](const QString& name, Settings::Route route) { speakers.emplace_back(name, route); });
    QObject::connect(&panel, &MenuBarPanel::panelDidChooseTrigger,
                     [&](const QString& name) { triggers.append(name); });
    emit window().speakerPopup->activated(1);
    emit window().outputPopup->activated(2);
    emit window().outputPopup->activated(0);
    EXPECT_EQ(speakers, (std::vector<std::pair<QString, Settings::Route>>{
                            {"Den", Settings::Route::Network}}));
    // The not-connected entry is the saved output; "Any output" is the empty name.
    EXPECT_EQ(triggers, (QStringList{"TV", ""}));
}

TEST_F(MenuBarPanelTest, NotConnectedShowsTheSpeakerConnectingAndAnOrangeWarning)
{
    PanelSnapshot snapshot;
    snapshot.armed = false; // not critical while not connected all the same
    panel.apply(snapshot);
    EXPECT_EQ(window().titleLabel->fullText(), "speaker");
    EXPECT_EQ(window().subtitleLabel->fullText(), "Connecting\u2026");
    EXPECT_EQ(window().warningLabel->fullText(), "Not connected");
    EXPECT_EQ(window().warningLabel->shade(), panel_look::Shade::warning);
    EXPECT_EQ(window().height(), PanelWindow::contentHeight(true, false));

    snapshot.speakerName = QStringLiteral("Den");
    snapshot.error = QStringLiteral("No answer from Den");
    panel.apply(snapshot);
    EXPECT_EQ(window().titleLabel->fullText(), "Den");
    EXPECT_EQ(window().subtitleLabel->fullText(), "No answer from Den");
    EXPECT_EQ(window().warningLabel->fullText(), "No answer from Den");
}

TEST_F(MenuBarPanelTest, AClickOnTheTrayRightAfterClosingDoesNotReopen)
{
    auto* tray = panel.findChild<QSystemTrayIcon*>();
    ASSERT_NE(tray, nullptr);
    std::vector<bool> shown;
    QObject::connect(&panel, &MenuBarPanel::shownChanged, [&](bool on) { shown.push_back(on); });
    emit tray->activated(QSystemTrayIcon::Trigger);
    ASSERT_TRUE(panel.isShown());
    panel.close();
    emit tray->activated(QSystemTrayIcon::Trigger);
    EXPECT_FALSE(panel.isShown()) << "the click that closed it";
    spinFor(std::chrono::milliseconds(300));
    emit tray->activated(QSystemTrayIcon::Trigger);
    EXPECT_TRUE(panel.isShown());
    emit tray->activated(QSystemTrayIcon::Trigger);
    EXPECT_FALSE(panel.isShown()) << "a click on the tray closes the open panel";
    EXPECT_EQ(shown, (std::vector<bool>{true, false, true, false}));
}

TEST_F(MenuBarPanelTest, TheKnobStaysPutWhileDraggedAndReadsAsAPercentage)
{
    PanelSnapshot snapshot;
    snapshot.connected = true;
    snapshot.volume = 35;
    std::vector<int> requested;
    QObject::connect(&panel, &MenuBarPanel::panelDidRequestVolume,
                     [&](int volume) { requested.push_back(volume); });
    panel.apply(snapshot);
    VolumeSlider* slider = window().slider;
    EXPECT_EQ(slider->value(), 35);
    EXPECT_EQ(QAccessible::queryAccessibleInterface(slider)->text(QAccessible::Value), "35%");

    slider->setSliderDown(true);
    slider->setValue(60);
    snapshot.volume = 20;
    panel.apply(snapshot);
    EXPECT_EQ(slider->value(), 60) << "a snapshot arriving mid-drag";
    slider->setSliderDown(false);
    panel.apply(snapshot);
    EXPECT_EQ(slider->value(), 20);
    EXPECT_EQ(requested, std::vector<int>{60}) << "only the user's move is sent";
}

TEST_F(MenuBarPanelTest, SetupGlidesTheSettingsOpenUnlessMotionIsReduced)
{
    panel.present();
    // A fresh panel is not connected, and says so in its warning line.
    const int closed = PanelWindow::contentHeight(true, false);
    const int open = PanelWindow::contentHeight(true, true);
    ASSERT_EQ(window().height(), closed);
    window().setupButton->click();
    EXPECT_TRUE(panel.settingsVisible());
    EXPECT_LT(window().height(), open) << "it starts from where it was";
    EXPECT_TRUE(spinUntil([&] { return window().height() == open; }));

    panel.setDisplayOptions({.reduceMotion = true});
    window().setupButton->click();
    EXPECT_EQ(window().height(), closed) << "at once";
}

} // namespace
