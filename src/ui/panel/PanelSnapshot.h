#pragma once

#include "support/Settings.h"
#include "support/UiText.h"
#include "ui/panel/PanelFix.h"

#include <QByteArray>
#include <QList>
#include <QString>
#include <QStringList>

#include <optional>

// One entry of the panel's speaker menu: the title it shows, the room it chooses and how the
// computer's audio reaches that room.
struct SpeakerChoice {
    QString title;
    QString name;
    Settings::Route route = Settings::Route::Optical;

    bool operator==(const SpeakerChoice&) const = default;
};

// Everything the panel shows at one moment. The controller builds it whole and the panel
// draws it whole: the panel never reads live state, and nothing here refers back to a live
// object, so a snapshot can be kept, compared and copied freely.
struct PanelSnapshot {
    bool connected = false; // a speaker is chosen and answering: live controls are shown
    QString speakerName;
    int volume = 0; // 0...100
    bool muted = false;
    std::optional<bool> night;  // none: the speaker has no night mode
    std::optional<bool> speech; // none: no speech enhancement
    bool isLineInput = false;   // the speaker plays its own line or optical input
    QString title = uiText("Nothing playing");
    QString subtitle;
    QString detail;
    bool isPlaying = false;
    bool canControlTransport = false;
    // The artwork is redrawn only when its identity changes.
    QString artworkIdentity;
    std::optional<QByteArray> artwork; // encoded image data
    // The desktop entry of the application whose icon stands in for missing cover art.
    std::optional<QString> artworkBundleID;
    std::optional<QString> currentOutput; // the output the computer's sound goes to
    PanelFix fix = PanelFix::none;
    QString error;   // why the speaker is not connected
    QString warning; // a problem for the warning line
    bool armed = true;
    QString armedReason;
    QString armedMessage; // why the keys are not redirected, for the keys button
    // None leaves the menu as it is; an empty list empties it.
    std::optional<QList<SpeakerChoice>> speakerChoices;
    std::optional<QStringList> outputChoices;
    quint64 generation = 0;

    bool operator==(const PanelSnapshot&) const = default;
};
