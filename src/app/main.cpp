// The program entry: reads the command line once and hands over to one run mode.
#include "app/ApplicationMode.h"
#include "app/CommandLine.h"
#include "app/HudDemoMode.h"
#include "app/ProbeMode.h"

#include <QStringList>

namespace {

QStringList argumentList(int argc, char** argv)
{
    QStringList arguments;
    for (int i = 0; i < argc; ++i)
        arguments << QString::fromLocal8Bit(argv[i]);
    return arguments;
}

} // namespace

int main(int argc, char** argv)
{
    const CommandLine commandLine = CommandLine::parse(argumentList(argc, argv));
    switch (commandLine.mode) {
    case RunMode::probe:
        return runProbeMode(argc, argv, commandLine);
    case RunMode::hudDemo:
        return runHudDemoMode(argc, argv);
    case RunMode::application:
        break;
    }
    return runApplicationMode(argc, argv, commandLine);
}
