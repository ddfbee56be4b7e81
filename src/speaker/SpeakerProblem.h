#pragma once

#include <QString>

// Why the chosen speaker is not connected, as a value: what went wrong and the speaker it
// concerns. The sentence a person reads is made from it in one place, speakerProblemText().
struct SpeakerProblem {
    enum class Kind {
        noSpeakerChosen,
        looking,               // the first sweep came back empty
        noSpeakersFound,       // sweeps keep coming back empty: something may block discovery
        notFound,              // players answered, none of them the chosen one
        unreachable,           // a send or a health check went unanswered
        answeredDiscoveryOnly, // the chosen player was found but refused control
    };

    Kind kind = Kind::noSpeakerChosen;
    QString speaker; // looking, notFound and answeredDiscoveryOnly name it

    bool operator==(const SpeakerProblem&) const = default;
};

// The problem as the user reads it, looked up in the string table.
QString speakerProblemText(const SpeakerProblem& problem);
