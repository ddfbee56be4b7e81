#pragma once

#include <QPoint>
#include <QStringList>
#include <QWidget>

#include <memory>
#include <vector>

// What a test under the private X server needs around the code under test.
namespace x11_session {

// Runs xdotool (input goes in through XTEST, as from a real keyboard) while the event loop
// keeps turning, so that a tap holding the keyboard frozen can answer.
bool xdotool(const QStringList& arguments);

// Another X client grabbing one key on the root window, as a desktop would.
class ForeignKeyGrab {
public:
    explicit ForeignKeyGrab(const char* keysymName);
    ~ForeignKeyGrab();
    bool isHeld() const { return m_held; }
    void release();

private:
    struct Connection;
    std::unique_ptr<Connection> m_x;
    bool m_held = false;
};

// Moves a key symbol to another key code, as a desktop loading its own keymap would, and
// puts both key codes back afterwards.
class KeymapMove {
public:
    KeymapMove(const char* keysymName, int toKeycode);
    ~KeymapMove();
    bool isDone() const { return m_done; }

private:
    struct Connection;
    std::unique_ptr<Connection> m_x;
    bool m_done = false;
};

// A focused window that remembers the keys and clicks it received.
class FocusedWindow : public QWidget {
public:
    struct Key {
        int key;
        bool press;
    };

    FocusedWindow();
    // Shown and holding the keyboard focus.
    bool showFocused();
    int presses(int key) const;
    int releases(int key) const;

    std::vector<Key> keys;
    std::vector<QPoint> clicks; // in screen coordinates

protected:
    void keyPressEvent(QKeyEvent* event) override;
    void keyReleaseEvent(QKeyEvent* event) override;
    void mousePressEvent(QMouseEvent* event) override;
};

} // namespace x11_session
