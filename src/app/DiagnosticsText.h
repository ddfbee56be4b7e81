#pragma once

#include "support/Settings.h"

#include <QMap>
#include <QString>

#include <optional>

// What the diagnostics text reports, copied from the application controller at the moment the
// user asks for it. A plain value, so the text is a pure function of it.
struct DiagnosticsState {
    // The speaker controller's last snapshot.
    struct Speaker {
        bool connected = false;
        int volume = 50;
        bool muted = false;
        QString lastError; // empty when the last exchange went well
        bool fixedVolume = false;
    };

    // The open-at-login entry.
    struct LoginItem {
        bool enabled = false;
        bool needsApproval = false; // the entry exists but the desktop has it switched off
    };

    QString version;       // QCoreApplication::applicationVersion(); empty when unknown
    QString programPath;   // QCoreApplication::applicationFilePath()
    QString systemVersion; // QSysInfo::prettyProductName()

    Settings settings;
    bool trusted = false;                 // input access, as the key capture last reported it
    bool tapEnabled = false;              // the keys are being caught
    bool speakerConnected = false;        // the controller's own flag, the one the arming uses
    std::optional<QString> currentOutput; // the default output's name, absent if none
    Speaker speaker;
    LoginItem loginItem;
    QString soundServer; // the sound server and its version, empty when unknown
};

// How many log lines the text ends with.
inline constexpr int kDiagnosticsLogLines = 60;

// The text the user copies into a bug report: the state above, then `logTail` (what
// Log::tail(kDiagnosticsLogLines) answered) as it stands. Lines are joined with line feeds,
// with none after the last.
QString diagnosticsText(const DiagnosticsState& state, const QString& logTail);

// The log line written once the text is on the clipboard.
QString diagnosticsCopiedLogLine(const QString& text);

// What the "Show What Was Copied" alert shows: the start of the text, at most
// kDiagnosticsPreviewLength characters.
inline constexpr int kDiagnosticsPreviewLength = 4000;
QString diagnosticsPreview(const QString& text);

// What a problem report says about the computer besides the application's own state, read off
// the main thread (see SystemFacts).
struct ComputerFacts {
    QString hardwareModel; // already described (MacModel::describe)
    QString distribution;
    QString desktop;
};

// The diagnostic facts a problem report carries, under the keys of ProblemReport::labels().
QMap<QString, QString> reportDiagnostics(const DiagnosticsState& state,
                                         const ComputerFacts& computer);
