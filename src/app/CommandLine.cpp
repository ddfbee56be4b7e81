#include "app/CommandLine.h"

namespace {

const QString helpFlag = QStringLiteral("--help");
const QString versionFlag = QStringLiteral("--version");
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
    bool help = false;
    bool version = false;
    bool probe = false;
    bool hudDemo = false;
    // The program path takes part in matching like every other argument; it is only kept
    // out of the list of unknown arguments.
    for (qsizetype i = 0; i < arguments.size(); ++i) {
        const QString& argument = arguments.at(i);
        if (argument == helpFlag)
            help = true;
        else if (argument == versionFlag)
            version = true;
        else if (argument == probeFlag)
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
    // --help and --version answer whatever else is asked, as GNU programs do. Of the run
    // modes the probe wins: it is the one meant to run beside everything else.
    line.mode = help      ? RunMode::help
                : version ? RunMode::version
                : probe   ? RunMode::probe
                : hudDemo ? RunMode::hudDemo
                          : RunMode::application;
    return line;
}

QString CommandLine::helpText(const QString& supportAddress, const QString& webAddress)
{
    return QStringLiteral(
               "Usage: velotide [OPTION]...\n"
               "Send the keyboard's volume keys to a Sonos speaker.\n"
               "Without an option Velotide starts in the tray.\n"
               "\n"
               "      --probe              print what decides whether the keys would work, "
               "then exit\n"
               "      --key-service=PATH   use the key service listening at PATH\n"
               "      --hud-demo           cycle the volume overlay until stopped\n"
               "      --demo-onboarding    show the setup window as on a first run\n"
               "      --demo-setup-again   show the setup window again after launch\n"
               "      --demo-panel         open the panel with its settings after launch\n"
               "      --demo-finish        finish the setup window shortly after it opens\n"
               "      --demo-step=N        show step N of the setup window\n"
               "      --help               display this help and exit\n"
               "      --version            output version information and exit\n"
               "\n"
               "Report bugs to: <%1>\n"
               "Velotide home page: <%2>\n")
        .arg(supportAddress, webAddress);
}

QString CommandLine::versionText(const QString& version)
{
    return QStringLiteral("velotide %1\n"
                          "Copyright (C) 2026 Brindlewerk\n")
        .arg(version);
}
