#include "speaker/SpeakerProblem.h"

#include "support/PlatformWords.h"
#include "support/UiText.h"

QString speakerProblemText(const SpeakerProblem& problem)
{
    using Kind = SpeakerProblem::Kind;
    switch (problem.kind) {
    case Kind::noSpeakerChosen:
        return uiText("No speaker chosen");
    case Kind::looking:
        return uiText("Looking for %1").arg(problem.speaker);
    case Kind::noSpeakersFound:
        return uiText(PlatformText::noSpeakersFound);
    case Kind::notFound:
        return uiText("Speaker '%1' not found").arg(problem.speaker);
    case Kind::unreachable:
        return uiText("Speaker unreachable");
    case Kind::answeredDiscoveryOnly:
        return uiText("Speaker '%1' unreachable").arg(problem.speaker);
    }
    return {};
}
