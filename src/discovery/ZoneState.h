#pragma once

#include "sonos/SonosDevice.h"

// A zone player with what tells whether it is the one wired to this computer's optical
// output: it plays its line or TV input now, or its model has an optical input at all.
struct ZoneState {
    SonosDevice device;
    bool isPlayingLineInput = false;
    bool hasNativeOptical = false;

    bool operator==(const ZoneState&) const = default;
};
