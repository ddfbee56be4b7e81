#include "keys/x11/X11Connection.h"

#include <QTimer>

#include <X11/Xlib.h>
#include <X11/extensions/XInput2.h>
#include <map>

namespace {

// Xlib has one error handler for the whole process (Qt installs its own). Ours records the
// errors of our connections and hands every other one to whoever was there before.
XErrorHandler previousHandler = nullptr;
std::map<Display*, int>& recordedErrors()
{
    static std::map<Display*, int> errors;
    return errors;
}

int recordError(Display* display, XErrorEvent* event)
{
    auto& errors = recordedErrors();
    if (const auto it = errors.find(display); it != errors.end()) {
        if (it->second == 0)
            it->second = event->error_code;
        return 0;
    }
    return previousHandler ? previousHandler(display, event) : 0;
}

void installErrorHandler()
{
    static bool installed = false;
    if (installed)
        return;
    installed = true;
    previousHandler = XSetErrorHandler(recordError);
}

std::optional<int> queryXInput2(Display* display)
{
    int opcode = 0, event = 0, error = 0;
    if (!XQueryExtension(display, "XInputExtension", &opcode, &event, &error))
        return std::nullopt;
    int major = 2, minor = 2;
    if (XIQueryVersion(display, &major, &minor) != Success || major < 2 ||
        (major == 2 && minor < 2))
        return std::nullopt;
    return opcode;
}

} // namespace

std::unique_ptr<X11Connection> X11Connection::open()
{
    Display* display = XOpenDisplay(nullptr);
    if (!display)
        return nullptr;
    return std::unique_ptr<X11Connection>(new X11Connection(display));
}

X11Connection::X11Connection(Display* display)
    : m_display(display)
    , m_notifier(
          std::make_unique<QSocketNotifier>(ConnectionNumber(display), QSocketNotifier::Read))
{
    installErrorHandler();
    recordedErrors()[m_display] = 0;
    m_xinput2Opcode = queryXInput2(m_display);
    QObject::connect(m_notifier.get(), &QSocketNotifier::activated, m_notifier.get(),
                     [this] { readEvents(); });
}

X11Connection::~X11Connection()
{
    m_notifier.reset();
    XCloseDisplay(m_display);
    recordedErrors().erase(m_display);
}

unsigned long X11Connection::root() const
{
    return DefaultRootWindow(m_display);
}

void X11Connection::setEventHandler(std::function<void(XEvent&)> handler)
{
    m_handler = std::move(handler);
}

int X11Connection::trapErrors(const std::function<void()>& requests)
{
    recordedErrors()[m_display] = 0;
    requests();
    XSync(m_display, False);
    const int error = recordedErrors()[m_display];
    recordedErrors()[m_display] = 0;
    // XSync may have read events into Xlib's queue, where the notifier cannot see them.
    if (XPending(m_display) > 0)
        QTimer::singleShot(0, m_notifier.get(), [this] { readEvents(); });
    return error;
}

void X11Connection::readEvents()
{
    // A handler may end this very connection (the click that closes what a watch guarded):
    // then the events still queued go with it, and nothing here is touched again.
    const std::weak_ptr<void> alive = m_alive;
    while (!alive.expired() && XPending(m_display) > 0) {
        XEvent event;
        XNextEvent(m_display, &event);
        if (const auto handler = m_handler)
            handler(event);
    }
}
