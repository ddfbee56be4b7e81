#include "ui/HudDemo.h"

#include "ui/VolumeHUD.h"

#include <QApplication>
#include <QTimer>

int runHudDemo(QApplication& app)
{
    // No window of the demonstration is ever closed; only the overlay fades.
    app.setQuitOnLastWindowClosed(false);
    VolumeHUD hud;
    int counter = 0;
    QTimer timer;
    timer.setInterval(600);
    QObject::connect(&timer, &QTimer::timeout, &hud, [&hud, &counter] {
        // A step of 20 modulo 120 reaches 100 exactly, then wraps to 0.
        counter = (counter + 20) % 120;
        hud.show(std::min(counter, 100), false, false, QString());
    });
    timer.start();
    hud.show(40, false, false, QString());
    return app.exec();
}
