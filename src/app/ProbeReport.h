#pragma once

#include "app/ArmedState.h"
#include "support/Settings.h"

#include <QList>
#include <QString>
#include <QStringList>

#include <optional>

// What the probe found, gathered into plain values, and the report's text made from them.
// The text comes in sections so that the probe can print each as soon as its facts are in;
// every function here is pure. Every line comes out with its control characters made
// visible, so what a player calls itself cannot act on the terminal the report is read in.
namespace ProbeReport {

struct Output {
    QString name;
    QString transport;
};

struct Player {
    QString name;
    QString model;
};

// One visible zone and what it answered.
struct Zone {
    QString name;
    QString model;
    QString host;
    QString uid;
    bool hasNativeOptical = false;
    std::optional<QString> airplayId;
    // Set when the volume, mute or now-playing query failed; the fields below are then unset.
    std::optional<QString> controlError;
    int volume = 0;
    bool muted = false;
    QString uri;
    QString title;
    QString artist;
    bool lineInputActive = false;
};

struct Facts {
    bool otherCopyRunning = false;
    bool inputAccess = false;

    QList<Output> outputs;
    std::optional<QString> defaultOutput;
    std::optional<QString> detectedTrigger;
    QStringList processesOutputting;

    double discoverySeconds = 0;
    QList<Player> hidden;
    QList<Zone> zones;

    std::optional<QString> settingsPath; // absent on a first run
    bool settingsUnreadable = false;     // a file is there, but it could not be used
    Settings settings;
};

// Title, running-copy warning and permissions.
QStringList head(const Facts& facts);
// Outputs, the detected trigger and what is making sound.
QStringList audio(const Facts& facts);
// The discovery figure, the hidden players and the no-zone hint.
QStringList discovery(const Facts& facts);
// The lines of one visible zone.
QStringList zone(const Zone& zone);
// The settings and whether the keys would be armed.
QStringList settingsAndVerdict(const Facts& facts);

// The arming decision the report states: the tap assumed healthy, the speaker connected when a
// visible zone carries exactly the settings' speaker name.
ArmedState verdict(const Facts& facts);

// The whole report, one line per element, as the probe prints it.
QStringList render(const Facts& facts);

} // namespace ProbeReport
