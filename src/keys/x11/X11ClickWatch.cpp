#include "keys/x11/X11ClickWatch.h"

#include "keys/x11/X11Connection.h"

#include <QGuiApplication>
#include <QScreen>

#include <X11/extensions/XInput2.h>

std::unique_ptr<X11ClickWatch> X11ClickWatch::start(OnClick onClick)
{
    auto x = X11Connection::open();
    if (!x || !x->xinput2Opcode())
        return nullptr;
    unsigned char bits[XIMaskLen(XI_LASTEVENT)] = {};
    XISetMask(bits, XI_RawButtonPress);
    XIEventMask mask{XIAllMasterDevices, int(sizeof(bits)), bits};
    const int error = x->trapErrors([&] { XISelectEvents(x->display(), x->root(), &mask, 1); });
    if (error != 0)
        return nullptr;
    return std::unique_ptr<X11ClickWatch>(new X11ClickWatch(std::move(x), std::move(onClick)));
}

X11ClickWatch::X11ClickWatch(std::unique_ptr<X11Connection> x, OnClick onClick)
    : m_x(std::move(x))
    , m_onClick(std::move(onClick))
{
    m_x->setEventHandler([this](XEvent& event) {
        if (event.type != GenericEvent || event.xcookie.extension != m_x->xinput2Opcode())
            return;
        Display* display = m_x->display();
        if (!XGetEventData(display, &event.xcookie))
            return;
        const int button = event.xcookie.evtype == XI_RawButtonPress
                               ? static_cast<XIRawEvent*>(event.xcookie.data)->detail
                               : 0;
        XFreeEventData(display, &event.xcookie);
        if (button != 0)
            buttonPressed(button);
    });
}

X11ClickWatch::~X11ClickWatch() = default;

// Buttons 4 to 7 are the scroll wheel's steps, not clicks.
void X11ClickWatch::buttonPressed(int button)
{
    if (button >= 4 && button <= 7)
        return;
    // The report may end this watch, so it is made with a copy of the handler.
    if (const OnClick onClick = m_onClick)
        onClick(pointerPosition());
}

// Where the pointer is now, read from the server, in the program's (device-independent)
// screen coordinates.
QPoint X11ClickWatch::pointerPosition() const
{
    Window root = 0, child = 0;
    int rootX = 0, rootY = 0, winX = 0, winY = 0;
    unsigned int mask = 0;
    XQueryPointer(m_x->display(), m_x->root(), &root, &child, &rootX, &rootY, &winX, &winY, &mask);
    const QScreen* screen = qobject_cast<QGuiApplication*>(QCoreApplication::instance())
                                ? QGuiApplication::primaryScreen()
                                : nullptr;
    const qreal ratio = screen ? screen->devicePixelRatio() : 1.0;
    return QPoint(qRound(rootX / ratio), qRound(rootY / ratio));
}
