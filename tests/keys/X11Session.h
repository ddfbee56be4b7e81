#pragma once

#include <QPoint>
#include <QStringList>
#include <QWidget>

#include <algorithm>
#include <memory>
#include <vector>

// What a test under the private X server needs around the code under test.
namespace x11_session {

// Runs xdotool with these space-separated words (input goes in through XTEST, as from a real
// keyboard) while the event loop keeps turning, so that a tap holding the keyboard frozen can
// answer.
bool xdotool(const QString& words);

// Another X client grabbing one key on the root window, as a desktop would, until the handle
// goes; null when it could not.
std::shared_ptr<void> grabKeyElsewhere(const char* keysymName);
// Moves a key symbol to another key code, as a desktop loading its own keymap would; both key
// codes are put back when the handle goes. Null when it could not.
std::shared_ptr<void> moveKeysym(const char* keysymName, int toKeycode);

// A focused window that remembers the keys and clicks it received.
class FocusedWindow : public QWidget {
public:
    FocusedWindow();
    // Shown and holding the keyboard focus.
    bool showFocused();
    // Everything typed or clicked before has been dealt with once the window saw "a" go by.
    bool settle();
    int presses(int key) const { return int(std::count(keys.begin(), keys.end(), key)); }
    int releases(int key) const { return int(std::count(keys.begin(), keys.end(), -key)); }

    std::vector<int> keys;      // each press as its key, each release as its negation
    std::vector<QPoint> clicks; // in screen coordinates

protected:
    void keyPressEvent(QKeyEvent* event) override;
    void keyReleaseEvent(QKeyEvent* event) override;
    void mousePressEvent(QMouseEvent* event) override;
};

} // namespace x11_session
