#pragma once

#include "app/ArmedState.h"

#include <QString>

#include <optional>

// Every input of the arming decision, copied at the moment of asking, so that the key path,
// the panel and the probe decide alike.
struct KeyContext {
    bool paused = false;                  // the user turned the keys off
    bool trusted = false;                 // input access: the key service serves this session
    bool tapEnabled = false;              // the keys are actually being caught
    QString triggerOutput;                // the output the keys apply to; empty means any output
    bool triggerConfigured = false;       // the trigger question has been settled (empty = any)
    std::optional<QString> currentOutput; // the default output's name, absent if none
    bool speakerConnected = false;
    bool speakerFixedVolume = false; // connected, but its volume cannot change
    QString speakerName;             // for saying which speaker that is

    // Pure and cheap: it runs on every change of an input and on every key.
    ArmedState evaluate() const;
};
