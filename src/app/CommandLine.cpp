#include "app/CommandLine.h"

namespace {

const QString probeFlag = QStringLiteral("--probe");
const QString hudDemoFlag = QStringLiteral("--hud-demo");
const QString demoOnboardingFlag = QStringLiteral("--demo-onboarding");
const QString demoSetupAgainFlag = QStringLiteral("--demo-setup-again");
const QString demoPanelFlag = QStringLiteral("--demo-panel");
const QString demoFinishFlag = QStringLiteral("--demo-finish");
const QString demoStepPrefix = QStringLiteral("--demo-step=");
const QString keyServicePrefix = QStringLiteral("--key-service=");

// Base 10, nothing else around it; anything that does not read as a number is 0.
int demoStepNumber(QStringView text)
{
    if (text.isEmpty() || text.front().isSpace() || text.back().isSpace())
        return 0;
    bool ok = false;
    const int number = text.toInt(&ok, 10);
    return ok ? number : 0;
}

} // namespace

CommandLine CommandLine::parse(const QStringList& arguments)
{
    CommandLine line;
    bool probe = false;
    bool hudDemo = false;
    // The program path takes part in matching like every other argument; it is only kept
    // out of the list of unknown arguments.
    for (qsizetype i = 0; i < arguments.size(); ++i) {
        const QString& argument = arguments.at(i);
        if (argument == probeFlag)
            probe = true;
        else if (argument == hudDemoFlag)
            hudDemo = true;
        else if (argument == demoOnboardingFlag)
            line.demoOnboarding = true;
        else if (argument == demoSetupAgainFlag)
            line.demoSetupAgain = true;
        else if (argument == demoPanelFlag)
            line.demoPanel = true;
        else if (argument == demoFinishFlag)
            line.demoFinish = true;
        else if (argument.startsWith(demoStepPrefix)) {
            if (!line.demoStep)
                line.demoStep = demoStepNumber(QStringView(argument).sliced(demoStepPrefix.size()));
        } else if (argument.startsWith(keyServicePrefix))
            line.keyServicePath = argument.sliced(keyServicePrefix.size());
        else if (i > 0)
            line.unknownArguments.append(argument);
    }
    // The probe wins: it is the one mode meant to run beside everything else.
    line.mode = probe ? RunMode::probe : hudDemo ? RunMode::hudDemo : RunMode::application;
    return line;
}
