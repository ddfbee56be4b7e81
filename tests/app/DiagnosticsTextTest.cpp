#include "app/DiagnosticsText.h"

#include "support/ProblemReport.h"

#include <QStringList>

#include <gtest/gtest.h>

namespace {

// A healthy household: keys armed on the optical output, speaker answering.
DiagnosticsState armedState()
{
    DiagnosticsState state;
    state.version = QStringLiteral("0.1.0");
    state.programPath = QStringLiteral("/usr/bin/velotide");
    state.systemVersion = QStringLiteral("Debian GNU/Linux 12 (bookworm)");
    state.settings.speaker = QStringLiteral("Living Room");
    state.settings.route = Settings::Route::Optical;
    state.settings.triggerOutput = QStringLiteral("Built-in Audio Digital Stereo (IEC958)");
    state.settings.triggerConfigured = true;
    state.settings.lastKnownHost = QStringLiteral("192.168.1.40");
    state.trusted = true;
    state.tapEnabled = true;
    state.speakerConnected = true;
    state.currentOutput = QStringLiteral("Built-in Audio Digital Stereo (IEC958)");
    state.speaker = {true, 37, false, {}};
    state.loginItem = {true, false};
    return state;
}

TEST(DiagnosticsText, HealthySetupLineByLine)
{
    const QStringList expected = {
        "Velotide diagnostics",
        "version: 0.1.0  (/usr/bin/velotide)",
        "system: Debian GNU/Linux 12 (bookworm)",
        "",
        "armed: true  ",
        "input access: true   tap enabled: true",
        "speaker: 'Living Room' route=optical connected=true volume=37 muted=false",
        "trigger output: 'Built-in Audio Digital Stereo (IEC958)'",
        "current output: Built-in Audio Digital Stereo (IEC958)",
        "known host: 192.168.1.40",
        "opens at login: true",
        "",
        "--- log (last 60 lines) ---",
        "2026-01-02 03:04:05 started",
    };
    EXPECT_EQ(diagnosticsText(armedState(), "2026-01-02 03:04:05 started").split(u'\n'), expected);
}

// The reason the keys are off, the speaker's error line, the wording of each missing fact, and
// names and log lines taken literally, placeholders and all.
TEST(DiagnosticsText, ProblemsAndMissingFactsLineByLine)
{
    DiagnosticsState state = armedState();
    state.version.clear();
    state.settings.paused = true;
    state.settings.speaker = QStringLiteral("Den %1 %2 'Sub'");
    state.settings.triggerOutput.clear();
    state.settings.lastKnownHost.clear();
    state.currentOutput.reset();
    state.speaker = {false, 0, true, QStringLiteral("Speaker unreachable")};
    state.loginItem = {false, true};
    const QStringList expected = {
        "Velotide diagnostics",
        "version: ?  (/usr/bin/velotide)",
        "system: Debian GNU/Linux 12 (bookworm)",
        "",
        "armed: false  paused",
        "input access: true   tap enabled: true",
        "speaker: 'Den %1 %2 'Sub'' route=optical connected=false volume=0 muted=true",
        "last error: Speaker unreachable",
        "trigger output: ''",
        "current output: unknown",
        "known host: ",
        "opens at login: false (blocked in Settings)",
        "",
        "--- log (last 60 lines) ---",
        "line one",
        "line two %1",
        "",
        "line four",
    };
    EXPECT_EQ(diagnosticsText(state, "line one\nline two %1\n\nline four").split(u'\n'), expected);
}

TEST(DiagnosticsText, CopiedLineCountsAndPreviewCutsAtFourThousand)
{
    const QString longText = QString(9999, QLatin1Char('x')) + QLatin1Char('y');
    EXPECT_EQ(diagnosticsCopiedLogLine(longText),
              "diagnostics copied to clipboard (10000 characters)");
    EXPECT_EQ(diagnosticsPreview(longText), longText.left(4000));
}

// A report carries the facts its preview shows, and nothing the preview leaves out.
TEST(DiagnosticsText, ReportFactsAreTheOnesThePreviewLabels)
{
    DiagnosticsState state = armedState();
    state.speaker.lastError = QStringLiteral("Speaker unreachable");
    state.soundServer = QStringLiteral("PipeWire 0.3.65");
    const auto facts =
        reportDiagnostics(state, {"Mac mini (2018) [Macmini8,1]", "Debian", "GNOME"});
    QStringList labelled;
    for (const ProblemReport::Label& label : ProblemReport::labels())
        labelled << QString::fromLatin1(label.key);
    labelled.sort();
    EXPECT_EQ(facts.keys(), labelled);
    EXPECT_FALSE(facts.values().contains(QString()));
}

} // namespace
