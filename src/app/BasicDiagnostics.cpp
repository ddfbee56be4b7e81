#include "app/BasicDiagnostics.h"

#include <QStringList>

namespace {
QString yesNo(bool value)
{
    return value ? QStringLiteral("yes") : QStringLiteral("no");
}
} // namespace

QString BasicDiagnostics::text() const
{
    QStringList lines;
    lines << QStringLiteral("Velotide ") + (version.isEmpty() ? QStringLiteral("?") : version);
    lines << QStringLiteral("Speaker: ") +
                 (speaker.isEmpty() ? QStringLiteral("(not chosen)") : speaker);
    lines << QStringLiteral("Connected: ") + yesNo(connected);
    lines << QStringLiteral("Volume: ") + QString::number(volume) +
                 (muted ? QStringLiteral(" (muted)") : QString());
    if (!speakerError.isEmpty())
        lines << QStringLiteral("Speaker error: ") + speakerError;
    lines << QStringLiteral("Volume keys: ") +
                 (armedState.isArmed() ? QStringLiteral("armed")
                                       : QStringLiteral("not armed — ") + armedState.reason());
    lines << QStringLiteral("Key capture: ") + keyCapture;
    lines << QStringLiteral("Input access: ") + yesNo(inputAccess);
    lines << QStringLiteral("Tap enabled: ") + yesNo(tapEnabled);
    lines << QStringLiteral("Trigger output: ") +
                 (triggerOutput.isEmpty() ? (triggerConfigured ? QStringLiteral("(any output)")
                                                               : QStringLiteral("(not chosen)"))
                                          : triggerOutput);
    lines << QStringLiteral("Current output: ") + currentOutput.value_or(QStringLiteral("(none)"));
    if (saveFailed)
        lines << QStringLiteral("Settings: the last save failed");
    lines << QString() << QStringLiteral("Recent log:") << logTail;
    return lines.join(u'\n');
}
