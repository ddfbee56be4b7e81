#include "app/ProbeMode.h"

#include "app/Probe.h"

#include <QCoreApplication>

#include <cstdio>

int runProbeMode(int argc, char** argv)
{
    QCoreApplication app(argc, argv);
    Probe probe([](const QStringList& lines) {
        for (const QString& line : lines) {
            std::fputs(line.toUtf8().constData(), stdout);
            std::fputc('\n', stdout);
        }
        std::fflush(stdout);
    });
    QObject::connect(&probe, &Probe::finished, &app, &QCoreApplication::quit, Qt::QueuedConnection);
    QMetaObject::invokeMethod(&probe, &Probe::start, Qt::QueuedConnection);
    app.exec();
    return 0;
}
