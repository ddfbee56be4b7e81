#include "app/HudDemoMode.h"

#include "app/WindowPlatform.h"
#include "ui/HudDemo.h"

#include <QApplication>

int runHudDemoMode(int argc, char** argv)
{
    preferX11WindowPlatform();
    QApplication app(argc, argv);
    return runHudDemo(app);
}
