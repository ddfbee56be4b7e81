#include "app/ProbeMode.h"

#include <QCoreApplication>

int runProbeMode(int argc, char** argv)
{
    QCoreApplication app(argc, argv);
    return 0;
}
