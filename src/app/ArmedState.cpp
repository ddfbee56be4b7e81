#include "app/ArmedState.h"

#include "support/PlatformWords.h"
#include "support/UiText.h"

ArmedState::ArmedState(Case c)
    : m_case(c)
{
}

ArmedState ArmedState::wrongOutput(std::optional<QString> current, QString trigger)
{
    ArmedState state(Case::wrongOutput);
    state.m_current = std::move(current);
    state.m_trigger = std::move(trigger);
    return state;
}

ArmedState ArmedState::fixedVolume(QString speaker)
{
    ArmedState state(Case::fixedVolume);
    state.m_speaker = std::move(speaker);
    return state;
}

QString ArmedState::reason() const
{
    switch (m_case) {
    case Case::armed:
        return {};
    case Case::paused:
        return QStringLiteral("paused");
    case Case::noAccessibility:
        return QString::fromUtf8(platformText(PlatformText::inputAccessMissing));
    case Case::tapInactive:
        return QString::fromUtf8(platformText(PlatformText::keyCaptureInactiveReason));
    case Case::speakerNotConnected:
        return QStringLiteral("speaker not connected");
    case Case::fixedVolume:
        return m_speaker + QStringLiteral(" has a fixed volume");
    case Case::noOutputChosen:
        return QStringLiteral("no output chosen");
    case Case::wrongOutput:
        return QStringLiteral("output is ") + m_current.value_or(QStringLiteral("unknown")) +
               QStringLiteral(", not ") + m_trigger;
    }
    return {};
}

QString ArmedState::panelMessage() const
{
    switch (m_case) {
    case Case::armed:
        return {};
    case Case::paused:
        return uiText("Volume keys are paused");
    case Case::noAccessibility:
        return uiText(PlatformText::volumeKeysNeedInputAccess);
    case Case::tapInactive:
        return uiText(PlatformText::keyCaptureInactive);
    case Case::speakerNotConnected:
        return uiText("Volume keys inactive — speaker not connected");
    case Case::fixedVolume:
        return uiText("Volume keys inactive — %1 has a fixed volume").arg(m_speaker);
    case Case::noOutputChosen:
        return uiText("Choose which output the keys apply to");
    case Case::wrongOutput:
        return uiText("Volume keys inactive — playing to %1")
            .arg(m_current ? *m_current : uiText("another output"));
    }
    return {};
}

PanelFix ArmedState::fix(const std::optional<SpeakerProblem>& speakerProblem) const
{
    switch (m_case) {
    case Case::armed:
    case Case::tapInactive:
    case Case::fixedVolume: // set in the Sonos app, where the line-level output is chosen
        return PanelFix::none;
    case Case::paused:
        return PanelFix::resumeKeys;
    case Case::noAccessibility:
        return PanelFix::openAccessibilitySettings;
    case Case::speakerNotConnected:
        // Only sweeps that keep coming back empty suggest that something blocks discovery.
        return speakerProblem && speakerProblem->kind == SpeakerProblem::Kind::noSpeakersFound
                   ? PanelFix::openLocalNetworkSettings
                   : PanelFix::none;
    case Case::noOutputChosen:
        return PanelFix::chooseOutput;
    case Case::wrongOutput:
        return PanelFix::openSoundSettings;
    }
    return PanelFix::none;
}
