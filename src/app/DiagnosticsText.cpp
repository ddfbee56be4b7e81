#include "app/DiagnosticsText.h"

#include "app/KeyContext.h"
#include "support/PlatformWords.h"

#include <QStringList>

namespace {

QString trueFalse(bool value)
{
    return value ? QStringLiteral("true") : QStringLiteral("false");
}

QString report(PlatformText text)
{
    return QString::fromUtf8(platformText(text));
}

ArmedState armedState(const DiagnosticsState& state)
{
    KeyContext context;
    context.paused = state.settings.paused;
    context.trusted = state.trusted;
    context.tapEnabled = state.tapEnabled;
    context.triggerOutput = state.settings.triggerOutput;
    context.triggerConfigured = state.settings.triggerConfigured;
    context.currentOutput = state.currentOutput;
    context.speakerConnected = state.speakerConnected;
    context.speakerFixedVolume = state.speaker.fixedVolume;
    context.speakerName = state.settings.speaker;
    return context.evaluate();
}

QString speakerLine(const DiagnosticsState& state)
{
    const DiagnosticsState::Speaker& speaker = state.speaker;
    return QStringLiteral("speaker: '%1' route=%2 connected=%3 volume=%4 muted=%5")
        .arg(state.settings.speaker, Settings::routeName(state.settings.route),
             trueFalse(speaker.connected), QString::number(speaker.volume),
             trueFalse(speaker.muted));
}

QString loginLine(const DiagnosticsState::LoginItem& item)
{
    QString line = QStringLiteral("opens at login: ") + trueFalse(item.enabled);
    if (item.needsApproval)
        line += report(PlatformText::diagnosticsBlockedInSettings);
    return line;
}

} // namespace

QString diagnosticsText(const DiagnosticsState& state, const QString& logTail)
{
    const QString version = state.version.isEmpty() ? QStringLiteral("?") : state.version;
    const ArmedState armed = armedState(state);
    QStringList lines;
    lines << QStringLiteral("Velotide diagnostics");
    lines << QStringLiteral("version: ") + version + QStringLiteral("  (") + state.programPath +
                 QLatin1Char(')');
    lines << report(PlatformText::diagnosticsSystem) + state.systemVersion;
    lines << QString();
    lines << QStringLiteral("armed: ") + trueFalse(armed.isArmed()) + QStringLiteral("  ") +
                 armed.reason();
    lines << report(PlatformText::diagnosticsInputAccess) + trueFalse(state.trusted) +
                 QStringLiteral("   tap enabled: ") + trueFalse(state.tapEnabled);
    lines << speakerLine(state);
    if (!state.speaker.lastError.isEmpty())
        lines << QStringLiteral("last error: ") + state.speaker.lastError;
    lines << QStringLiteral("trigger output: '") + state.settings.triggerOutput + QLatin1Char('\'');
    lines << QStringLiteral("current output: ") +
                 state.currentOutput.value_or(QStringLiteral("unknown"));
    lines << QStringLiteral("known host: ") + state.settings.lastKnownHost;
    lines << loginLine(state.loginItem);
    lines << QString();
    lines << QStringLiteral("--- log (last %1 lines) ---").arg(kDiagnosticsLogLines);
    lines << logTail;
    return lines.join(QLatin1Char('\n'));
}

QString diagnosticsCopiedLogLine(const QString& text)
{
    return QStringLiteral("diagnostics copied to clipboard (%1 characters)").arg(text.size());
}

QString diagnosticsPreview(const QString& text)
{
    return text.left(kDiagnosticsPreviewLength);
}

QMap<QString, QString> reportDiagnostics(const DiagnosticsState& state,
                                         const ComputerFacts& computer)
{
    const ArmedState armed = armedState(state);
    const QString version = state.version.isEmpty() ? QStringLiteral("?") : state.version;
    QString speaker = speakerLine(state);
    speaker.remove(0, speaker.indexOf(u' ') + 1);
    return {
        {QStringLiteral("version"), version + QStringLiteral(" (") + state.programPath + u')'},
        {QStringLiteral("system"), computer.distribution},
        {QStringLiteral("desktop"), computer.desktop},
        {QStringLiteral("sound_server"), state.soundServer},
        {QStringLiteral("computer"), computer.hardwareModel},
        {QStringLiteral("speaker"), speaker},
        {QStringLiteral("last_error"), state.speaker.lastError},
        {QStringLiteral("outputs"),
         QStringLiteral("current '") + state.currentOutput.value_or(QStringLiteral("unknown")) +
             QStringLiteral("', trigger '") + state.settings.triggerOutput + u'\''},
        {QStringLiteral("armed"),
         armed.reason().isEmpty()
             ? trueFalse(armed.isArmed())
             : trueFalse(armed.isArmed()) + QStringLiteral(" — ") + armed.reason()},
    };
}
