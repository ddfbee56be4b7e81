#include "X11Session.h"

#include "common/Wait.h"

#include <QKeyEvent>
#include <QMouseEvent>
#include <QProcess>

#include <X11/Xlib.h>

namespace x11_session {

bool xdotool(const QStringList& arguments)
{
    QProcess process;
    process.start(QStringLiteral("xdotool"), arguments);
    const bool ended = testing_support::spinUntil(
        [&] { return process.state() == QProcess::NotRunning; }, std::chrono::seconds(10));
    return ended && process.exitStatus() == QProcess::NormalExit && process.exitCode() == 0;
}

struct ForeignKeyGrab::Connection {
    Display* display = nullptr;
    KeyCode code = 0;
};

ForeignKeyGrab::ForeignKeyGrab(const char* keysymName)
    : m_x(std::make_unique<Connection>())
{
    m_x->display = XOpenDisplay(nullptr);
    if (!m_x->display)
        return;
    m_x->code = XKeysymToKeycode(m_x->display, XStringToKeysym(keysymName));
    XGrabKey(m_x->display, m_x->code, 0, DefaultRootWindow(m_x->display), True, GrabModeAsync,
             GrabModeAsync);
    XSync(m_x->display, False);
    m_held = m_x->code != 0;
}

ForeignKeyGrab::~ForeignKeyGrab()
{
    if (m_x->display)
        XCloseDisplay(m_x->display);
}

void ForeignKeyGrab::release()
{
    if (!m_held)
        return;
    XUngrabKey(m_x->display, m_x->code, 0, DefaultRootWindow(m_x->display));
    XSync(m_x->display, False);
    m_held = false;
}

struct KeymapMove::Connection {
    Display* display = nullptr;
    struct Saved {
        KeyCode code;
        int perCode;
        std::vector<KeySym> syms;
    };
    std::vector<Saved> saved;

    void save(KeyCode code)
    {
        int perCode = 0;
        KeySym* syms = XGetKeyboardMapping(display, code, 1, &perCode);
        saved.push_back({code, perCode, std::vector<KeySym>(syms, syms + perCode)});
        XFree(syms);
    }
    void set(KeyCode code, KeySym sym)
    {
        XChangeKeyboardMapping(display, code, 1, &sym, 1);
        XSync(display, False);
    }
};

KeymapMove::KeymapMove(const char* keysymName, int toKeycode)
    : m_x(std::make_unique<Connection>())
{
    m_x->display = XOpenDisplay(nullptr);
    if (!m_x->display)
        return;
    const KeySym sym = XStringToKeysym(keysymName);
    const KeyCode from = XKeysymToKeycode(m_x->display, sym);
    if (from == 0)
        return;
    m_x->save(from);
    m_x->save(KeyCode(toKeycode));
    m_x->set(from, NoSymbol);
    m_x->set(KeyCode(toKeycode), sym);
    m_done = true;
}

KeymapMove::~KeymapMove()
{
    if (!m_x->display)
        return;
    for (auto& saved : m_x->saved) {
        XChangeKeyboardMapping(m_x->display, saved.code, saved.perCode, saved.syms.data(), 1);
    }
    XSync(m_x->display, False);
    XCloseDisplay(m_x->display);
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

int FocusedWindow::presses(int key) const
{
    return int(std::count_if(keys.begin(), keys.end(),
                             [&](const Key& k) { return k.key == key && k.press; }));
}

int FocusedWindow::releases(int key) const
{
    return int(std::count_if(keys.begin(), keys.end(),
                             [&](const Key& k) { return k.key == key && !k.press; }));
}

void FocusedWindow::keyPressEvent(QKeyEvent* event)
{
    keys.push_back({event->key(), true});
}

void FocusedWindow::keyReleaseEvent(QKeyEvent* event)
{
    keys.push_back({event->key(), false});
}

void FocusedWindow::mousePressEvent(QMouseEvent* event)
{
    clicks.push_back(event->globalPosition().toPoint());
}

} // namespace x11_session
