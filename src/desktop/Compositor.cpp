#include "desktop/Compositor.h"

#include <QGuiApplication>

#include <X11/Xlib.h>

bool isCompositorRunning()
{
    auto* x11 = qGuiApp ? qGuiApp->nativeInterface<QNativeInterface::QX11Application>() : nullptr;
    if (!x11)
        return QGuiApplication::platformName() != QLatin1String("offscreen");
    Display* display = x11->display();
    if (!display)
        return false;
    const QByteArray name = "_NET_WM_CM_S" + QByteArray::number(DefaultScreen(display));
    const Atom selection = XInternAtom(display, name.constData(), False);
    return XGetSelectionOwner(display, selection) != None;
}
