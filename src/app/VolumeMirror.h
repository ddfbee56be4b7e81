#pragma once

#include "keys/EventTap.h"

// The application's own copy of the speaker's level, moved by the volume keys so that the
// overlay answers a press at once, before the network exchange. Pure arithmetic.
struct VolumeMirror {
    int volume = 50; // 0...100
    bool muted = false;

    // One key-down. Up and down move by 2, or by 1 when `fine` (Shift held), clamped to
    // 0...100; raising unmutes, lowering leaves mute as it is. Mute toggles, but an
    // auto-repeated mute changes nothing, so holding the key toggles once. Answers whether the
    // press counts (a repeated mute does not).
    bool press(EventTap::MediaKey key, bool fine, bool isRepeat)
    {
        const int step = fine ? 1 : 2;
        switch (key) {
        case EventTap::MediaKey::soundUp:
            volume = volume + step > 100 ? 100 : volume + step;
            muted = false;
            return true;
        case EventTap::MediaKey::soundDown:
            volume = volume - step < 0 ? 0 : volume - step;
            return true;
        case EventTap::MediaKey::mute:
            if (isRepeat)
                return false;
            muted = !muted;
            return true;
        }
        return false;
    }

    bool operator==(const VolumeMirror&) const = default;
};
