#include "app/WarningText.h"

#include "support/PlatformWords.h"
#include "support/UiText.h"

QString warningText(const WarningInputs& in)
{
    if (in.saveFailed)
        return uiText("Could not save settings — check disk space");
    if (!in.armed)
        return in.armedMessage;
    const QString speaker = in.speaker.isEmpty() ? uiText("no speaker") : in.speaker;
    if (in.route == Settings::Route::Airplay)
        return in.ambiguousAirPlayName
                   ? uiText("Two AirPlay devices are named \u201c%1\u201d").arg(speaker)
                   : QString();

    const bool wiredSpeaker = in.opticalCapable.contains(speaker);
    // With no trigger the keys work on any output, so sound going elsewhere would surprise.
    if (in.triggerOutput.isEmpty() && in.currentOutput && *in.currentOutput != speaker &&
        *in.currentOutput != QStringLiteral("AirPlay") && (!wiredSpeaker || !in.isLineInput))
        return uiText(PlatformText::computerAudioGoingTo).arg(*in.currentOutput);
    if (in.playingOverOptical && *in.playingOverOptical != speaker && !in.isLineInput)
        return uiText("Audio is playing on %1 — this controls %2")
            .arg(*in.playingOverOptical, speaker);
    if (!in.triggerOutput.isEmpty() && in.currentOutput == in.triggerOutput && !in.isLineInput &&
        !in.playingOverOptical && !wiredSpeaker)
        return uiText("%1 is not reporting a wired input").arg(speaker);
    return {};
}
