#pragma once

// What happens to the events of one input device: which reach the desktop through the
// device's clone, which are swallowed and reported to the client. No I/O here: events go in,
// frames to write and reports to send come out, so every rule can be tested without a kernel.
//
// The rules, for a device that is grabbed:
// - Every event is passed on unchanged and in order, frame by frame (a frame ends with
//   SYN_REPORT), except key events of the three volume keys that are swallowed.
// - A volume key-down is swallowed when the service is armed at that moment (a client is
//   connected and said armed), and then reported. Its auto-repeats and its key-up follow that
//   decision whatever happens to the arming meanwhile, so the desktop sees a press either whole
//   or not at all and no key is ever left down.
// - A frame left with nothing but its SYN_REPORT is dropped: the kernel drops such an empty
//   frame itself, so emitting it or not would look the same to every reader; dropping it is the
//   rule that needs no exception.
// - Other events of the frame that carried a swallowed key (a keyboard's MSC_SCAN) pass: they
//   change no state on the desktop.
// While a device is not grabbed, the desktop reads it directly; its events only update the
// held keys, so the device can be grabbed at a moment when none is held.

#include "keyservice/Protocol.h"

#include <array>
#include <bitset>
#include <functional>
#include <linux/input.h>
#include <optional>
#include <vector>

namespace keyd {

std::optional<MediaKey> mediaKeyOf(unsigned code);
bool isPointerButton(unsigned code);

// The reports and the frame that one event produced.
struct RouteOutput {
    std::vector<input_event> frame; // complete frame to write to the clone, or empty
    std::vector<KeyReport> reports;
    std::vector<PointerButton> buttons;
};

// What the rest of the service says at the moment an event is routed.
struct RouteContext {
    bool armed = false;
    bool wantsButtons = false;
    std::function<bool()> shiftHeld; // asked only for a swallowed key-down or repeat
};

// The routing state of one device.
class KeyRouter {
public:
    void setGrabbed(bool grabbed);
    bool isGrabbed() const { return m_grabbed; }

    // True when no key or button of the device is held after the last complete frame.
    bool isNeutral() const { return m_held.none() && m_pending.empty(); }

    void route(const input_event& event, const RouteContext& context, RouteOutput& out);

    // SYN_DROPPED: the frame read so far already moved the device's known state (libevdev's,
    // from which the coming resync deltas are computed), so it is completed and passed on as
    // it stands rather than thrown away; the clone then ends in the device's state.
    void completeFrame(RouteOutput& out);

private:
    enum class Decision : unsigned char { pass, swallow };

    bool swallowKey(MediaKey key, const input_event& event, const RouteContext& context,
                    RouteOutput& out);
    void trackHeld(const input_event& event);

    bool m_grabbed = false;
    std::bitset<KEY_CNT> m_held;
    std::array<Decision, 8> m_decision{}; // indexed by MediaKey's raw value
    std::vector<input_event> m_pending;
};

} // namespace keyd
