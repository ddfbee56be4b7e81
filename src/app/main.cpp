// The program entry: reads the command line once and hands over to one run mode.
#include "app/ApplicationMode.h"
#include "app/CommandLine.h"
#include "app/HudDemoMode.h"
#include "app/ProbeMode.h"

#include <QStringList>

#include <cstdio>

namespace {

QStringList argumentList(int argc, char** argv)
{
    QStringList arguments;
    for (int i = 0; i < argc; ++i)
        arguments << QString::fromLocal8Bit(argv[i]);
    return arguments;
}

int print(const QString& text)
{
    std::fputs(text.toUtf8().constData(), stdout);
    return std::fflush(stdout) == 0 ? 0 : 1;
}

} // namespace

int main(int argc, char** argv)
{
    const CommandLine commandLine = CommandLine::parse(argumentList(argc, argv));
    switch (commandLine.mode) {
    case RunMode::help:
        return print(CommandLine::helpText(QStringLiteral(VELOTIDE_SUPPORT_ADDRESS),
                                           QStringLiteral(VELOTIDE_WEB_ADDRESS)));
    case RunMode::version:
        return print(CommandLine::versionText(QStringLiteral(VELOTIDE_VERSION)));
    case RunMode::probe:
        return runProbeMode(argc, argv, commandLine);
    case RunMode::hudDemo:
        return runHudDemoMode(argc, argv);
    case RunMode::application:
        break;
    }
    return runApplicationMode(argc, argv, commandLine);
}
