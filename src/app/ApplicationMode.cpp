#include "app/ApplicationMode.h"

#include "app/AppController.h"
#include "app/CommandLine.h"
#include "app/QuitOnSignals.h"
#include "app/WindowPlatform.h"
#include "housekeeping/SingleInstance.h"

#include <QApplication>

int runApplicationMode(int argc, char** argv, const CommandLine& commandLine)
{
    preferX11WindowPlatform();
    QApplication app(argc, argv);
    QApplication::setApplicationName(QStringLiteral("velotide"));
    QApplication::setApplicationVersion(QStringLiteral(VELOTIDE_VERSION));
    QGuiApplication::setDesktopFileName(SingleInstance::serviceName);

    SingleInstance instance;
    if (!instance.claim())
        return 0;

    AppController::Options options;
    options.commandLine = commandLine;
    options.keyServicePath = commandLine.keyServicePath;
    AppController controller(std::move(options));
    quitOnSignals(app);
    controller.applicationDidFinishLaunching(&instance);
    return app.exec();
}
