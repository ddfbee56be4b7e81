#include "X11Session.h"

#include "common/Wait.h"

#include <QKeyEvent>
#include <QMouseEvent>
#include <QProcess>

#include <X11/Xlib.h>

namespace x11_session {

bool xdotool(const QString& words)
{
    QProcess process;
    process.start(QStringLiteral("xdotool"), words.split(u' '));
    const bool ended = testing_support::spinUntil(
        [&] { return process.state() == QProcess::NotRunning; }, std::chrono::seconds(10));
    return ended && process.exitStatus() == QProcess::NormalExit && process.exitCode() == 0;
}

// Closing the connection releases its grabs.
std::shared_ptr<void> grabKeyElsewhere(const char* keysymName)
{
    Display* display = XOpenDisplay(nullptr);
    if (!display)
        return nullptr;
    std::shared_ptr<void> handle(display, [](void* d) { XCloseDisplay(static_cast<Display*>(d)); });
    const KeyCode code = XKeysymToKeycode(display, XStringToKeysym(keysymName));
    XGrabKey(display, code, 0, DefaultRootWindow(display), True, GrabModeAsync, GrabModeAsync);
    XSync(display, False);
    return code ? handle : nullptr;
}

std::shared_ptr<void> moveKeysym(const char* keysymName, int toKeycode)
{
    Display* display = XOpenDisplay(nullptr);
    const KeySym sym = XStringToKeysym(keysymName);
    const KeyCode from = display ? XKeysymToKeycode(display, sym) : 0;
    if (from == 0) {
        if (display)
            XCloseDisplay(display);
        return nullptr;
    }
    struct Saved {
        Display* display;
        std::vector<std::pair<KeyCode, std::vector<KeySym>>> codes;
    };
    auto saved = new Saved{display, {}};
    for (KeyCode code : {from, KeyCode(toKeycode)}) {
        int perCode = 0;
        KeySym* syms = XGetKeyboardMapping(display, code, 1, &perCode);
        saved->codes.emplace_back(code, std::vector<KeySym>(syms, syms + perCode));
        XFree(syms);
    }
    KeySym none = NoSymbol;
    XChangeKeyboardMapping(display, from, 1, &none, 1);
    XChangeKeyboardMapping(display, KeyCode(toKeycode), 1, const_cast<KeySym*>(&sym), 1);
    XSync(display, False);
    return std::shared_ptr<void>(saved, [](void* handle) {
        auto* s = static_cast<Saved*>(handle);
        for (auto& [code, syms] : s->codes)
            XChangeKeyboardMapping(s->display, code, int(syms.size()), syms.data(), 1);
        XCloseDisplay(s->display);
        delete s;
    });
}

FocusedWindow::FocusedWindow()
{
    setGeometry(200, 150, 300, 200);
    setFocusPolicy(Qt::StrongFocus);
}

bool FocusedWindow::showFocused()
{
    show();
    activateWindow();
    setFocus();
    return testing_support::spinUntil([&] { return isActiveWindow() && hasFocus(); });
}

bool FocusedWindow::settle()
{
    const int before = releases(Qt::Key_A);
    if (!xdotool(QStringLiteral("key a")) ||
        !testing_support::spinUntil([&] { return releases(Qt::Key_A) > before; }))
        return false;
    testing_support::spinFor(std::chrono::milliseconds(30));
    return true;
}

void FocusedWindow::keyPressEvent(QKeyEvent* event)
{
    keys.push_back(event->key());
}

void FocusedWindow::keyReleaseEvent(QKeyEvent* event)
{
    keys.push_back(-event->key());
}

void FocusedWindow::mousePressEvent(QMouseEvent* event)
{
    clicks.push_back(event->globalPosition().toPoint());
}

} // namespace x11_session
