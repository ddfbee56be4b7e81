#pragma once

#include "app/ArmedState.h"

#include <QString>

#include <optional>

// What "Copy Diagnostics" puts on the clipboard until the full diagnostics text takes its
// place: the state the application decides by, in plain lines a user can paste into a
// message. A plain value in, text out.
struct BasicDiagnostics {
    QString version;
    QString speaker; // empty: none chosen
    bool connected = false;
    int volume = 0;
    bool muted = false;
    QString speakerError;
    ArmedState armedState = ArmedState::Case::armed;
    QString keyCapture; // the key capture's backend name
    bool inputAccess = false;
    bool tapEnabled = false;
    QString triggerOutput;
    bool triggerConfigured = false;
    std::optional<QString> currentOutput;
    bool saveFailed = false;
    QString logTail; // the last lines of the log, as read from the file

    QString text() const;
};
