#pragma once

#include <QString>

#include <chrono>
#include <functional>
#include <memory>
#include <optional>

class QTimer;

// Catches the keyboard's three volume keys for the whole session. While `armed` answers true
// the keys are swallowed and each key-down is reported through `onKey`; otherwise they reach
// the desktop untouched. A watchdog keeps the capture alive and follows input access coming
// and going. Main thread only; every callback is called synchronously on the main thread.
//
// Backends: the key service velotide-keyd (ServiceTap), a passive key grab on X11 (X11Tap),
// and an inactive tap for sessions where neither is possible.
class EventTap {
public:
    // The raw values are the key codes the rest of the program (and the key service) use.
    enum class MediaKey { soundUp = 0, soundDown = 1, mute = 7 };
    // None for any other raw value.
    static std::optional<MediaKey> mediaKeyFromRaw(int raw);

    struct Callbacks {
        // Asked for every volume key; answers from memory at once. True: swallow and report.
        std::function<bool()> armed;
        // Each key-down swallowed while armed (fine: Shift held; isRepeat: auto-repeat).
        std::function<void(MediaKey key, bool fine, bool isRepeat)> onKey;
        // Each time the capture's health is re-examined.
        std::function<void(bool trusted, bool tapEnabled)> onHealthChange;
    };

    // The default key service socket, or another one (tests).
    struct Options {
        QString servicePath;
    };

    // Picks the backend: the key service when its socket is there and open to this user,
    // else the X11 grab in an X11 session (not under XWayland), else an inactive tap.
    static std::unique_ptr<EventTap> create(Callbacks callbacks, Options options = {});

    explicit EventTap(Callbacks callbacks);
    virtual ~EventTap();
    EventTap(const EventTap&) = delete;
    EventTap& operator=(const EventTap&) = delete;

    // Starts capturing; true when a capture now exists. Reports health either way.
    virtual bool install() = 0;
    // Releases the capture (keys go back to the desktop) and reports health.
    virtual void teardown() = 0;
    // Runs check() every `interval` from now on, replacing any earlier watchdog.
    void startWatchdog(std::chrono::milliseconds interval);
    // One watchdog pass: follows input access, heals or rebuilds the capture, reports health.
    virtual void check();
    // Call whenever an input of the arming decision changed: a backend that decides keys
    // elsewhere (the key service) gets the new answer; the others ask on every key anyway.
    virtual void reevaluate() {}
    // Reports each pointer button press while a handler is set (empty handler: stop). False
    // when this backend has no pointer reports; only the key service has them.
    virtual bool setPointerButtonHandler(std::function<void()> onPress);

    // Whether this session has input access now; answers at once, waiting on nothing.
    virtual bool isTrusted() const = 0;
    // Whether the capture exists and works now ("tap enabled").
    virtual bool isEnabled() const = 0;
    // A short name of the backend for diagnostics: "key service", "X11", "none".
    virtual QString backendName() const = 0;

protected:
    // Whether a capture object exists, working or not.
    virtual bool hasTap() const = 0;
    // Whether the existing capture object itself still works (grab held, connection open),
    // whatever it currently sees.
    virtual bool isAlive() const = 0;
    // Repairs an existing capture that stopped working; answers whether it works again.
    virtual bool reenable() = 0;

    // Calls onHealthChange with the current trust and enabled state.
    void reportHealth();
    // The armed callback's answer (false when there is none).
    bool askArmed() const;
    // Calls onKey.
    void reportKey(MediaKey key, bool fine, bool isRepeat) const;

private:
    Callbacks m_callbacks;
    std::unique_ptr<QTimer> m_watchdog;
    std::optional<bool> m_wasTrusted;
};
