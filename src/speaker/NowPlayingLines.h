#pragma once

#include "sonos/SonosDevice.h"

#include <QString>

// The three now-playing lines of the panel, made from what the speaker reports: a track is
// title, artist and album; a radio stream is the song with the station below it; the
// speaker's own inputs are named by what they are. Every text from the speaker is made safe
// to show with visibleText.
struct NowPlayingLines {
    QString title;
    QString subtitle;
    QString detail;

    static NowPlayingLines of(const SonosDevice::NowPlaying& playing);

    bool operator==(const NowPlayingLines&) const = default;
};
