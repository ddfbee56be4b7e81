#pragma once

#include <QSocketNotifier>

#include <functional>
#include <memory>
#include <optional>

// Xlib's own declarations, without its macros (which collide with Qt's names).
typedef struct _XDisplay Display;
typedef union _XEvent XEvent;

// One private connection to the X server, read on the main thread through a socket
// notifier. Errors on it never end the process: they are recorded, and trapErrors() hands
// them to the caller that made the requests.
class X11Connection {
public:
    // None when there is no X server to talk to.
    static std::unique_ptr<X11Connection> open();
    ~X11Connection();
    X11Connection(const X11Connection&) = delete;
    X11Connection& operator=(const X11Connection&) = delete;

    Display* display() const { return m_display; }
    unsigned long root() const;

    // Every event from now on goes to `handler`, as soon as it arrives.
    void setEventHandler(std::function<void(XEvent&)> handler);
    // Makes `requests`, waits until the server has handled them, and answers the code of the
    // first error they caused (0 when none).
    int trapErrors(const std::function<void()>& requests);
    // The major opcode of XInput 2.2 or later, or none when the server lacks it.
    std::optional<int> xinput2Opcode() const { return m_xinput2Opcode; }

private:
    explicit X11Connection(Display* display);
    void readEvents();

    Display* m_display;
    std::unique_ptr<QSocketNotifier> m_notifier;
    std::function<void(XEvent&)> m_handler;
    std::optional<int> m_xinput2Opcode;
    // Gone with the connection, so that a reading loop can tell it was ended from inside.
    std::shared_ptr<void> m_alive = std::make_shared<int>(0);
};
