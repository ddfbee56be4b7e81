#include "keys/x11/X11Tap.h"

#include "keys/TapTexts.h"
#include "keys/x11/X11Connection.h"
#include "support/Log.h"

#include <X11/XF86keysym.h>
#include <X11/XKBlib.h>
#include <X11/Xlib.h>
#include <X11/extensions/XInput2.h>

namespace {

// Lets the frozen keyboard go exactly once: replayed to the focused window unless told to
// swallow, and replayed too if anything leaves the scope early. The thaw carries the time of
// the event it answers: the server ignores it when a newer grab has frozen the keyboard
// since, so an answer that arrives late can never release a later key's grab.
class KeyboardThaw {
public:
    KeyboardThaw(Display* display, Time time)
        : m_display(display)
        , m_time(time)
    {
    }
    ~KeyboardThaw() { release(ReplayKeyboard); }
    KeyboardThaw(const KeyboardThaw&) = delete;
    KeyboardThaw& operator=(const KeyboardThaw&) = delete;

    void swallow() { release(AsyncKeyboard); }
    void replay() { release(ReplayKeyboard); }

private:
    void release(int mode)
    {
        if (m_done)
            return;
        m_done = true;
        XAllowEvents(m_display, mode, m_time);
        XFlush(m_display);
    }

    Display* m_display;
    Time m_time;
    bool m_done = false;
};

// The key code of an XInput 2 raw key release, none for any other event.
std::optional<std::uint8_t> rawKeyRelease(Display* display, XEvent& event,
                                          std::optional<int> xinput2Opcode)
{
    if (event.type != GenericEvent || event.xcookie.extension != xinput2Opcode)
        return std::nullopt;
    if (!XGetEventData(display, &event.xcookie))
        return std::nullopt;
    std::optional<std::uint8_t> code;
    if (event.xcookie.evtype == XI_RawKeyRelease)
        code = std::uint8_t(static_cast<XIRawEvent*>(event.xcookie.data)->detail);
    XFreeEventData(display, &event.xcookie);
    return code;
}

} // namespace

X11Tap::X11Tap(Callbacks callbacks)
    : EventTap(std::move(callbacks))
    , m_x(X11Connection::open())
{
    if (!m_x)
        return;
    m_keys = findKeys();
    // A held key then repeats as presses without releases in between, so a repeat is a
    // press of a key that is already down. (A server without this turns each repeat into a
    // release and a fresh press; keys still work, only isRepeat stays false.)
    XkbSetDetectableAutoRepeat(m_x->display(), True, nullptr);
    m_x->setEventHandler([this](XEvent& event) {
        if (event.type == KeyPress || event.type == KeyRelease) {
            keyEvent(std::uint8_t(event.xkey.keycode), event.type == KeyPress,
                     (event.xkey.state & ShiftMask) != 0, event.xkey.time);
        } else if (event.type == MappingNotify) {
            XRefreshKeyboardMapping(&event.xmapping);
            if (event.xmapping.request == MappingKeyboard)
                keymapChanged();
        } else if (const auto released =
                       rawKeyRelease(m_x->display(), event, m_x->xinput2Opcode())) {
            rawKeyReleased(*released);
        }
    });
}

X11Tap::~X11Tap()
{
    if (m_grabbed)
        ungrabKeys();
}

bool X11Tap::install()
{
    if (!m_x || !grabKeys()) {
        reportHealth();
        return false;
    }
    reportHealth();
    Log::info(TapTexts::installed());
    return true;
}

void X11Tap::teardown()
{
    if (m_grabbed)
        ungrabKeys();
    reportHealth();
}

bool X11Tap::reenable()
{
    return m_x && grabKeys();
}

std::map<std::uint8_t, EventTap::MediaKey> X11Tap::findKeys() const
{
    const std::pair<KeySym, MediaKey> keys[] = {{XF86XK_AudioRaiseVolume, MediaKey::soundUp},
                                                {XF86XK_AudioLowerVolume, MediaKey::soundDown},
                                                {XF86XK_AudioMute, MediaKey::mute}};
    std::map<std::uint8_t, MediaKey> found;
    for (const auto& [sym, key] : keys) {
        if (const KeyCode code = XKeysymToKeycode(m_x->display(), sym))
            found[code] = key;
    }
    return found;
}

// Desktops often load their keymap after the programs of the session have started; the
// volume keys may then sit on other key codes, and the grab moves with them. The server also
// announces a keymap each time another keyboard starts typing, mostly the same one: the
// grab then stays, as moving it would let a key that is on its way slip past.
void X11Tap::keymapChanged()
{
    std::map<std::uint8_t, MediaKey> found = findKeys();
    if (found == m_keys)
        return;
    const bool wasGrabbed = m_grabbed;
    if (wasGrabbed)
        ungrabKeys();
    m_keys = std::move(found);
    if (wasGrabbed && !grabKeys())
        reportHealth();
}

// All three keys or none: a tap that caught some volume keys and let others through would
// split one volume between two owners. AnyModifier covers Shift (fine steps), the lock keys
// and every other modifier in one grab per key.
bool X11Tap::grabKeys()
{
    Display* display = m_x->display();
    const int error = m_x->trapErrors([&] {
        for (const auto& [code, key] : m_keys)
            XGrabKey(display, code, AnyModifier, m_x->root(), False, GrabModeAsync, GrabModeSync);
    });
    m_grabbed = error == 0 && !m_keys.empty();
    if (!m_grabbed) {
        ungrabKeys();
        if (!m_toldHeldElsewhere)
            Log::info(TapTexts::grabHeldElsewhere());
        m_toldHeldElsewhere = true;
        return false;
    }
    m_toldHeldElsewhere = false;
    return true;
}

void X11Tap::ungrabKeys()
{
    Display* display = m_x->display();
    m_x->trapErrors([&] {
        for (const auto& [code, key] : m_keys)
            XUngrabKey(display, code, AnyModifier, m_x->root());
    });
    m_grabbed = false;
    m_swallowed.clear();
    m_passed.clear();
    watchReleases(false);
}

void X11Tap::keyEvent(std::uint8_t code, bool press, bool fine, unsigned long time)
{
    const auto it = m_keys.find(code);
    if (it == m_keys.end()) {
        // Not ours: another key pressed or released while one of ours is held. It froze
        // nothing, unless it is a volume key that has just moved to another key code; either
        // way the keyboard must not stay frozen.
        KeyboardThaw(m_x->display(), time).replay();
        return;
    }
    if (press)
        keyPressed(code, it->second, fine, time);
    else
        m_swallowed.remove(code); // only a swallowed key's release comes to us
}

// The first press of a key freezes the keyboard until we answer. Repeats of a swallowed key
// arrive through the grab that is still active and need no answer, but get one anyway.
void X11Tap::keyPressed(std::uint8_t code, MediaKey key, bool fine, unsigned long time)
{
    KeyboardThaw thaw(m_x->display(), time);
    if (m_passed.contains(code)) {
        thaw.replay(); // a key held since it went to the desktop stays with the desktop
        return;
    }
    if (m_swallowed.contains(code)) {
        thaw.swallow();
        if (askArmed())
            reportKey(key, fine, true);
        return;
    }
    if (!askArmed()) {
        // Watch for the release before letting the key go, or a quick release could slip by.
        passUntilReleased(code);
        thaw.replay();
        return;
    }
    thaw.swallow();
    m_swallowed.insert(code);
    reportKey(key, fine, false);
}

// A replayed key's release goes to the focused window, not to us; raw key releases, watched
// only while such a key is down, tell when it is up again. Without XInput 2 each repeat is
// decided afresh.
void X11Tap::passUntilReleased(std::uint8_t keycode)
{
    if (!m_x->xinput2Opcode())
        return;
    m_passed.insert(keycode);
    watchReleases(true);
}

void X11Tap::rawKeyReleased(std::uint8_t keycode)
{
    m_passed.remove(keycode);
    if (m_passed.isEmpty())
        watchReleases(false);
}

void X11Tap::watchReleases(bool on)
{
    if (!m_x || !m_x->xinput2Opcode())
        return;
    unsigned char bits[XIMaskLen(XI_LASTEVENT)] = {};
    if (on)
        XISetMask(bits, XI_RawKeyRelease);
    XIEventMask mask{XIAllMasterDevices, int(sizeof(bits)), bits};
    XISelectEvents(m_x->display(), m_x->root(), &mask, 1);
    XFlush(m_x->display());
}
