#include "keyd/KeyRouter.h"

namespace keyd {

std::optional<MediaKey> mediaKeyOf(unsigned code)
{
    switch (code) {
    case KEY_VOLUMEUP:
        return MediaKey::soundUp;
    case KEY_VOLUMEDOWN:
        return MediaKey::soundDown;
    case KEY_MUTE:
        return MediaKey::mute;
    default:
        return std::nullopt;
    }
}

bool isPointerButton(unsigned code)
{
    return code >= BTN_MOUSE && code <= BTN_TASK;
}

void KeyRouter::setGrabbed(bool grabbed)
{
    m_grabbed = grabbed;
    m_pending.clear();
    m_decision.fill(Decision::pass);
}

void KeyRouter::route(const input_event& event, const RouteContext& context, RouteOutput& out)
{
    const bool wasHeld = event.type == EV_KEY && m_held.test(event.code);
    trackHeld(event);
    if (event.type == EV_KEY && event.value == 1 && context.wantsButtons &&
        isPointerButton(event.code))
        out.buttons.push_back(PointerButton{event.code});
    if (!m_grabbed)
        return;

    if (event.type == EV_SYN && event.code == SYN_REPORT) {
        if (!m_pending.empty()) {
            m_pending.push_back(event);
            out.frame.insert(out.frame.end(), m_pending.begin(), m_pending.end());
        }
        m_pending.clear();
        return;
    }
    if (event.type == EV_KEY) {
        if (auto key = mediaKeyOf(event.code)) {
            const auto index = static_cast<std::size_t>(*key);
            // A new press is decided now; a press already held keeps the decision it had,
            // so its repeats and its release can never split from its key-down.
            if (event.value == 1 && !wasHeld)
                m_decision[index] = context.armed ? Decision::swallow : Decision::pass;
            if (swallowKey(*key, event, context, out))
                return;
        }
    }
    m_pending.push_back(event);
}

void KeyRouter::completeFrame(RouteOutput& out)
{
    if (!m_grabbed || m_pending.empty())
        return;
    input_event report = m_pending.back();
    report.type = EV_SYN;
    report.code = SYN_REPORT;
    report.value = 0;
    m_pending.push_back(report);
    out.frame.insert(out.frame.end(), m_pending.begin(), m_pending.end());
    m_pending.clear();
}

bool KeyRouter::swallowKey(MediaKey key, const input_event& event, const RouteContext& context,
                           RouteOutput& out)
{
    const auto index = static_cast<std::size_t>(key);
    if (m_decision[index] != Decision::swallow)
        return false;
    if (event.value == 0) {
        m_decision[index] = Decision::pass;
        return true;
    }
    // Reported only while armed: a client that disarmed mid-press wants no more reports,
    // though the rest of the press stays swallowed.
    if (context.armed) {
        const bool fine = context.shiftHeld && context.shiftHeld();
        out.reports.push_back(KeyReport{key, fine, event.value == 2});
    }
    return true;
}

void KeyRouter::trackHeld(const input_event& event)
{
    if (event.type != EV_KEY || event.code >= KEY_CNT)
        return;
    m_held.set(event.code, event.value != 0);
}

} // namespace keyd
