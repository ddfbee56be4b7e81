#pragma once

#include "speaker/SpeakerProblem.h"
#include "ui/panel/PanelFix.h"

#include <QString>

#include <optional>

// Whether the volume keys belong to the speaker ("armed") or to the desktop, and if not, why:
// a short reason for the log and the diagnostics, and a sentence for the panel.
class ArmedState {
public:
    // In order of priority: when several apply, the first one is reported.
    enum class Case {
        armed,
        paused,
        noAccessibility, // no input access: the key service does not serve this session
        tapInactive,
        speakerNotConnected,
        fixedVolume, // the speaker is connected, but its output is fixed at line level
        noOutputChosen,
        wrongOutput,
    };

    // Any case but wrongOutput, which carries the outputs it compared, and fixedVolume,
    // which names the speaker.
    ArmedState(Case c);
    static ArmedState wrongOutput(std::optional<QString> current, QString trigger);
    static ArmedState fixedVolume(QString speaker);

    Case kind() const { return m_case; }
    bool isArmed() const { return m_case == Case::armed; }
    // wrongOutput only: the output sound goes to (absent when there is none), and the one
    // the keys apply to.
    const std::optional<QString>& currentOutput() const { return m_current; }
    const QString& triggerOutput() const { return m_trigger; }
    // fixedVolume only: the speaker whose volume cannot change.
    const QString& speaker() const { return m_speaker; }

    // For the log and the diagnostics, never looked up; empty when armed.
    QString reason() const;
    // For the panel, looked up in the string table; empty when armed.
    QString panelMessage() const;
    // The remedy the panel offers. `speakerProblem` is the speaker's problem in the last
    // status the panel was given, absent when there was none (or no status yet).
    PanelFix fix(const std::optional<SpeakerProblem>& speakerProblem) const;

    bool operator==(const ArmedState&) const = default;

private:
    Case m_case;
    std::optional<QString> m_current;
    QString m_trigger;
    QString m_speaker;
};
