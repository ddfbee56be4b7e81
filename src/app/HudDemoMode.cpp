#include "app/HudDemoMode.h"

#include "ui/HudDemo.h"

#include <QApplication>

int runHudDemoMode(int argc, char** argv)
{
    // The overlay places itself, which Wayland does not allow a client to do; XWayland does.
    if (qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM") && !qEnvironmentVariableIsEmpty("DISPLAY"))
        qputenv("QT_QPA_PLATFORM", "xcb");
    QApplication app(argc, argv);
    return runHudDemo(app);
}
