#include "desktop/Compositor.h"

#include <QGuiApplication>

#include <X11/Xlib.h>

bool isCompositorRunning()
{
    // qGuiApp is only a cast: a plain QCoreApplication has no platform plugin.
    auto* gui = qobject_cast<QGuiApplication*>(QCoreApplication::instance());
    auto* x11 = gui ? gui->nativeInterface<QNativeInterface::QX11Application>() : nullptr;
    if (!x11)
        return QGuiApplication::platformName() != QLatin1String("offscreen");
    Display* display = x11->display();
    if (!display)
        return false;
    const QByteArray name = "_NET_WM_CM_S" + QByteArray::number(DefaultScreen(display));
    const Atom selection = XInternAtom(display, name.constData(), False);
    return XGetSelectionOwner(display, selection) != None;
}
