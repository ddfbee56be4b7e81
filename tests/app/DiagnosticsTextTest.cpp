#include "app/DiagnosticsText.h"

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

QStringList linesOf(const QString& text)
{
    return text.split(QLatin1Char('\n'));
}

TEST(DiagnosticsText, HealthySetupLineByLine)
{
    const QString text =
        diagnosticsText(armedState(), QStringLiteral("2026-01-02 03:04:05 started"));
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
    EXPECT_EQ(linesOf(text), expected);
    EXPECT_FALSE(text.endsWith(QLatin1Char('\n')));
}

TEST(DiagnosticsText, TheReasonOfTheDecisionAndTheSpeakersErrorWhenThereIsOne)
{
    DiagnosticsState state = armedState();
    state.settings.paused = true;
    state.speaker = {false, 0, true, QStringLiteral("Speaker unreachable")};
    QStringList lines = linesOf(diagnosticsText(state, {}));
    EXPECT_EQ(lines.at(4), "armed: false  paused");
    EXPECT_EQ(lines.at(6),
              "speaker: 'Living Room' route=optical connected=false volume=0 muted=true");
    EXPECT_EQ(lines.at(7), "last error: Speaker unreachable");

    // Without an error there is no error line at all, not an empty one.
    state.speaker.lastError.clear();
    lines = linesOf(diagnosticsText(state, {}));
    EXPECT_EQ(lines.at(7), "trigger output: 'Built-in Audio Digital Stereo (IEC958)'");
}

TEST(DiagnosticsText, MissingFactsHaveTheirOwnWording)
{
    DiagnosticsState state = armedState();
    state.version.clear();
    state.currentOutput.reset();
    state.settings.speaker.clear();
    state.settings.triggerOutput.clear();
    state.settings.lastKnownHost.clear();
    state.loginItem = {false, true};
    const QStringList lines = linesOf(diagnosticsText(state, QStringLiteral("(no log file yet)")));
    EXPECT_EQ(lines.at(1), "version: ?  (/usr/bin/velotide)");
    EXPECT_EQ(lines.at(6), "speaker: '' route=optical connected=true volume=37 muted=false");
    EXPECT_EQ(lines.at(7), "trigger output: ''");
    EXPECT_EQ(lines.at(8), "current output: unknown");
    EXPECT_EQ(lines.at(9), "known host: ");
    EXPECT_EQ(lines.at(10), "opens at login: false (blocked in Settings)");
    EXPECT_EQ(lines.last(), "(no log file yet)");
}

TEST(DiagnosticsText, NamesAreTakenLiterallyAndTheLogTailIsKeptWhole)
{
    DiagnosticsState state = armedState();
    state.settings.speaker = QStringLiteral("Den %1 %2 'Sub'");
    const QString tail = QStringLiteral("line one\nline two %1\n\nline four");
    const QString text = diagnosticsText(state, tail);
    EXPECT_EQ(linesOf(text).at(6),
              "speaker: 'Den %1 %2 'Sub'' route=optical connected=true volume=37 muted=false");
    EXPECT_TRUE(text.endsWith(QStringLiteral("--- log (last 60 lines) ---\n") + tail));
}

TEST(DiagnosticsText, CopiedLineCountsAndPreviewCutsAtFourThousand)
{
    const QString longText = QString(9999, QLatin1Char('x')) + QLatin1Char('y');
    EXPECT_EQ(diagnosticsCopiedLogLine(longText),
              "diagnostics copied to clipboard (10000 characters)");
    EXPECT_EQ(diagnosticsPreview(longText), longText.left(4000));
}

} // namespace
