#pragma once

#include "support/Settings.h"

#include <QSet>
#include <QString>

#include <optional>

// What the panel's warning line depends on, copied at the moment a snapshot is built.
struct WarningInputs {
    bool saveFailed = false;
    bool armed = true;
    QString armedMessage; // why the keys are not redirected, when they are not
    Settings::Route route = Settings::Route::Optical;
    QString triggerOutput; // empty: the keys apply on any output
    std::optional<QString> currentOutput;
    QString speaker;                           // the chosen speaker's name, empty when none
    QSet<QString> opticalCapable;              // zones that could be wired to the optical output
    std::optional<QString> playingOverOptical; // the one zone playing its line input
    bool isLineInput = false;                  // the chosen speaker plays its line input
    bool ambiguousAirPlayName = false;         // two AirPlay receivers carry the speaker's name
};

// The one problem the panel's warning line names, the most pressing first; empty for none.
QString warningText(const WarningInputs& in);
