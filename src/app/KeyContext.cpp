#include "app/KeyContext.h"

// The order of the tests is the priority of the states: a paused application says so even
// without input access, and a missing speaker is only reported once the output question is
// settled and the output matches.
ArmedState KeyContext::evaluate() const
{
    using Case = ArmedState::Case;
    if (paused)
        return Case::paused;
    if (!trusted)
        return Case::noAccessibility;
    if (!tapEnabled)
        return Case::tapInactive;
    if (!triggerOutput.isEmpty()) {
        // Output names are compared exactly: another letter case is another output.
        if (currentOutput != triggerOutput)
            return ArmedState::wrongOutput(currentOutput, triggerOutput);
    } else if (!triggerConfigured) {
        return Case::noOutputChosen;
    }
    if (!speakerConnected)
        return Case::speakerNotConnected;
    return speakerFixedVolume ? ArmedState::fixedVolume(speakerName) : Case::armed;
}
