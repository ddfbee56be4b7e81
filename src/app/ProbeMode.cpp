#include "app/ProbeMode.h"

#include "app/Probe.h"

#include <QCoreApplication>

#include <cstdio>

int runProbeMode(int argc, char** argv)
{
    QCoreApplication app(argc, argv);
    // The key service the application would use (a private one started by a test, or a
    // development copy), so that the probe judges input access as the application does.
    Probe::Options options;
    options.keyServicePath = qEnvironmentVariable("VELOTIDE_KEYD_SOCKET");
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
