#pragma once

#include "support/PlatformWords.h"
#include "support/SettingsLink.h"
#include "support/UiText.h"

#include <QString>

#include <optional>

// The one remedy the panel may offer for the current problem. The panel shows callToAction() as
// its fix button and reports the choice back; the controller carries out panelFixAction().
// Kept to plain inline functions so that both the panel and the controller can use it without
// linking one another.
enum class PanelFix {
    none,
    openAccessibilitySettings, // here: input access, granted by the key service
    openSoundSettings,
    openLocalNetworkSettings, // here: the network settings (a firewall may block discovery)
    resumeKeys,
    chooseOutput,
    uninstall,
};

// The fix button's title, looked up in the string table; absent (not empty) for `none`, whose
// button is hidden.
inline std::optional<QString> callToAction(PanelFix fix)
{
    switch (fix) {
    case PanelFix::none:
        return std::nullopt;
    case PanelFix::openAccessibilitySettings:
        return uiText(PlatformText::openInputAccessSettings);
    case PanelFix::openSoundSettings:
        return uiText("Open Sound settings");
    case PanelFix::openLocalNetworkSettings:
        return uiText(PlatformText::openNetworkSettings);
    case PanelFix::resumeKeys:
        return uiText("Turn the keys back on");
    case PanelFix::chooseOutput:
        return uiText("Choose an output");
    case PanelFix::uninstall:
        return uiText("Uninstall Velotide\u2026"); // one ellipsis character
    }
    return std::nullopt;
}

// What choosing a fix makes the controller do, as a value.
struct PanelFixAction {
    enum class Kind {
        nothing,
        openSettings,      // open `pane` (settingsLink() says where on this desktop)
        resumeKeys,        // clear the paused setting, save, update the click monitor, poll
        openPanelSettings, // open the panel's settings section (animated) if it is closed
        runUninstaller,
    };

    Kind kind = Kind::nothing;
    std::optional<SettingsPane> pane;
    // Also tell the user how to turn input access on: the stand-in for the system's
    // permission prompt.
    bool explainInputAccess = false;
    // Set as the panel's warning, critical and without a fix; empty for none.
    QString criticalWarning;

    bool operator==(const PanelFixAction&) const = default;
};

inline PanelFixAction panelFixAction(PanelFix fix)
{
    using Kind = PanelFixAction::Kind;
    switch (fix) {
    case PanelFix::none:
        return {};
    case PanelFix::openAccessibilitySettings:
        return {Kind::openSettings, SettingsPane::inputAccess, true,
                uiText(PlatformText::inputAccessAlreadyListed)};
    case PanelFix::openSoundSettings:
        return {Kind::openSettings, SettingsPane::sound, false, {}};
    case PanelFix::openLocalNetworkSettings:
        return {Kind::openSettings, SettingsPane::network, false, {}};
    case PanelFix::resumeKeys:
        return {Kind::resumeKeys, std::nullopt, false, {}};
    case PanelFix::chooseOutput:
        return {Kind::openPanelSettings, std::nullopt, false, {}};
    case PanelFix::uninstall:
        return {Kind::runUninstaller, std::nullopt, false, {}};
    }
    return {};
}
