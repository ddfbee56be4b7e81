#pragma once

#include "keys/EventTap.h"

#include <QSet>

#include <cstdint>
#include <map>

class X11Connection;

// The tap where the key service is not installed and the session runs on X11: a passive
// grab of the three volume keys on the root window, on a connection of its own. The grab
// freezes the keyboard at each volume key-down until this tap decides: swallow it (armed)
// or replay it to the focused window. Whatever happens, the keyboard is let go at once.
//
// Input access means an X server is there; "tap enabled" means the grab is held (it fails
// where another program, usually the desktop, holds those keys already).
class X11Tap final : public EventTap {
public:
    explicit X11Tap(Callbacks callbacks);
    ~X11Tap() override;

    bool install() override;
    void teardown() override;
    bool isTrusted() const override { return m_x != nullptr; }
    bool isEnabled() const override { return m_grabbed; }
    QString backendName() const override { return QStringLiteral("X11"); }

protected:
    bool hasTap() const override { return m_grabbed; }
    bool isAlive() const override { return m_grabbed; }
    bool reenable() override;

private:
    // The key codes the volume keys sit on in the keymap now.
    std::map<std::uint8_t, MediaKey> findKeys() const;
    void keymapChanged();
    bool grabKeys();
    void ungrabKeys();
    // `time` is the event's server time, which ties the thaw to the freeze it answers.
    void keyEvent(std::uint8_t keycode, bool press, bool fine, unsigned long time);
    void keyPressed(std::uint8_t keycode, MediaKey key, bool fine, unsigned long time);
    void passUntilReleased(std::uint8_t keycode);
    void rawKeyReleased(std::uint8_t keycode);
    void watchReleases(bool on);

    std::unique_ptr<X11Connection> m_x;
    std::map<std::uint8_t, MediaKey> m_keys;
    bool m_grabbed = false;
    bool m_toldHeldElsewhere = false;
    QSet<std::uint8_t> m_swallowed; // down, swallowed: its repeats and release come to us
    QSet<std::uint8_t> m_passed;    // down, replayed: its repeats go the same way
};
