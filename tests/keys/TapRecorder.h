#pragma once

#include "keys/EventTap.h"

#include <ostream>
#include <utility>
#include <vector>

// Callbacks for a tap that remember what the tap said; `armed` answers `armedAnswer`.
struct TapRecorder {
    struct Key {
        EventTap::MediaKey key;
        bool fine;
        bool isRepeat;
        bool operator==(const Key&) const = default;
        friend void PrintTo(const Key& k, std::ostream* out)
        {
            *out << "{key " << int(k.key) << ", fine " << k.fine << ", repeat " << k.isRepeat
                 << "}";
        }
    };

    bool armedAnswer = false;
    int armedAsked = 0;
    std::vector<Key> keys;
    std::vector<std::pair<bool, bool>> health; // (trusted, tapEnabled)

    EventTap::Callbacks callbacks()
    {
        return {[this] {
                    ++armedAsked;
                    return armedAnswer;
                },
                [this](EventTap::MediaKey key, bool fine, bool isRepeat) {
                    keys.push_back({key, fine, isRepeat});
                },
                [this](bool trusted, bool enabled) { health.emplace_back(trusted, enabled); }};
    }

    std::pair<bool, bool> lastHealth() const
    {
        return health.empty() ? std::pair{false, false} : health.back();
    }
};
