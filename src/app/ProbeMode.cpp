#include "app/ProbeMode.h"

#include "app/CommandLine.h"
#include "app/Probe.h"

#include <QCoreApplication>

#include <cstdio>

int runProbeMode(int argc, char** argv, const CommandLine& commandLine)
{
    QCoreApplication app(argc, argv);
    // The key service the application would use, so that the probe judges input access as
    // the application does.
    Probe::Options options;
    options.keyServicePath = commandLine.keyServicePath;
    Probe probe(
        [](const QStringList& lines) {
            for (const QString& line : lines) {
                std::fputs(line.toUtf8().constData(), stdout);
                std::fputc('\n', stdout);
            }
            std::fflush(stdout);
        },
        options);
    QObject::connect(&probe, &Probe::finished, &app, &QCoreApplication::quit, Qt::QueuedConnection);
    QMetaObject::invokeMethod(&probe, &Probe::start, Qt::QueuedConnection);
    app.exec();
    return 0;
}
