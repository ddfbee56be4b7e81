#pragma once

#include "desktop/DisplayOptions.h"
#include "support/Settings.h"
#include "ui/panel/PanelFix.h"
#include "ui/panel/PanelSnapshot.h"
#include "ui/panel/PanelTransport.h"

#include <QObject>
#include <QPoint>
#include <QString>

#include <memory>

class QWidget;

// The application's face: the tray icon and the panel that opens beside it (now playing with
// cover art and transport, the volume slider, the action row, the warning line with its fix,
// and the settings section for choosing the speaker and the output), plus the secondary menu
// of the tray icon. It draws only what the last snapshot says and reports every user action
// as a signal; it never changes the application's state itself. Main thread only.
class MenuBarPanel : public QObject {
    Q_OBJECT
public:
    // What the secondary menu shows besides its fixed entries.
    struct MenuFacts {
        QString version;
        QString build;
        bool updaterRunning = false;
        bool automaticChecks = false;
        bool loginItemEnabled = false;
        bool loginItemNeedsApproval = false;

        bool operator==(const MenuFacts&) const = default;
    };

    // `saved` is the controller's settings record, read whenever the menus are filled so that
    // the saved speaker and output stay selected even when they are not found now. It must
    // outlive the panel.
    explicit MenuBarPanel(const Settings& saved, QObject* parent = nullptr);
    ~MenuBarPanel() override;

    void apply(const PanelSnapshot& snapshot);
    void setWarning(const QString& text, PanelFix fix, bool critical);
    void setMenuFacts(const MenuFacts& facts);
    // The tray icon's look: armed (keys go to the speaker) or not.
    void setArmedLook(bool armed);
    // The tray icon's tooltip, kept as given.
    void setToolTip(const QString& text);
    // Reduce Motion makes the settings section appear and disappear without gliding.
    void setDisplayOptions(const DisplayOptions& options);

    // Opens the panel beside the tray icon (or as an ordinary window when there is no tray).
    void present();
    void close();
    bool isShown() const;
    // A click anywhere on the screen, in screen coordinates: closes the panel when the point
    // lies outside it (its edges count as inside).
    void closeIfOutside(QPoint globalPoint);

    bool settingsVisible() const;
    void setSettingsVisible(bool visible);
    void applyDisclosure(bool animated);

    // The panel's top-level window, for screenshots and benchmarks.
    QWidget* window() const;

signals:
    void panelDidRequestVolume(int volume);
    void panelDidRequestMute();
    void panelDidToggleNight();
    void panelDidToggleSpeech();
    void panelDidToggleKeys();
    void panelDidChooseSpeaker(const QString& name, Settings::Route route);
    void panelDidChooseTrigger(const QString& name);
    void panelDidRequestTransport(PanelTransport transport);
    void panelDidRequestFix(PanelFix fix);
    void panelDidRequestProblemReport();
    void panelDidRequestDiagnostics();
    void panelDidRequestSetupAgain();
    void panelDidRequestUninstall();
    void panelDidRequestUpdateCheck();
    void panelDidToggleAutomaticChecks();
    void panelDidToggleLoginItem();
    void panelDidRequestQuit();

    // The panel opened (and, while it stays open, once a second): fresh state is wanted.
    void tick();
    // The panel opened: the speaker menu's choices may be stale.
    void choicesNeeded();
    // The panel opened or closed (the click monitor runs while it is open).
    void shownChanged(bool shown);

private:
    struct Private;
    std::unique_ptr<Private> d;
};
