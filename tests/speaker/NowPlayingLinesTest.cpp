#include "speaker/NowPlayingLines.h"

#include <gtest/gtest.h>

namespace {

struct Case {
    const char* uri;
    const char* title;
    const char* artist;
    const char* album;
    const char* streamContent;
    const char* station;
    NowPlayingLines lines;
};

TEST(NowPlayingLines, EachKindOfSourceHasItsLines)
{
    const char* radio = "x-sonosapi-stream:s24896?sid=254&flags=8224&sn=0";
    const Case cases[] = {
        {"", "", "", "", "", "", {"Nothing playing", "", ""}},
        {"x-file-cifs://nas/a.flac",
         "So What",
         "Miles Davis",
         "Kind of Blue",
         "",
         "",
         {"So What", "Miles Davis", "Kind of Blue"}},
        {radio,
         radio,
         "",
         "",
         "Daft Punk - One More Time",
         "Radio X",
         {"One More Time", "Daft Punk", "Radio X"}},
        {"x-rincon-mp3radio://radio.example/live",
         "",
         "",
         "",
         "The Morning Show",
         "Radio X",
         {"The Morning Show", "", "Radio X"}},
        {"x-sonosapi-hls:r1?sid=1", "", "", "", "", "Radio X", {"Radio X", "", ""}},
        {radio, "", "", "", "ZPSTR_CONNECTING", "Radio X", {"Radio X", "", ""}},
        {radio, radio, "", "", "", "", {"Nothing playing", "", ""}},
        {"x-sonos-htastream:RINCON_38420B91A2C401400:spdif", "TV", "", "", "", "", {"TV", "", ""}},
        {"x-rincon-stream:RINCON_B8E9374A1F0001400",
         "Line-In",
         "",
         "",
         "",
         "",
         {"Line-In", "", ""}},
        {"x-sonos-spotify:t",
         "Clear\x1b[2J",
         "A\nB",
         "\u202eevil",
         "",
         "",
         {"Clear\\e[2J", "A\\nB", "\\u202eevil"}},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(std::string(c.uri) + " / " + c.streamContent);
        SonosDevice::NowPlaying playing;
        playing.uri = QString::fromUtf8(c.uri);
        playing.title = QString::fromUtf8(c.title);
        playing.artist = QString::fromUtf8(c.artist);
        playing.album = QString::fromUtf8(c.album);
        playing.streamContent = QString::fromUtf8(c.streamContent);
        playing.station = QString::fromUtf8(c.station);
        const NowPlayingLines lines = NowPlayingLines::of(playing);
        EXPECT_EQ(lines.title, c.lines.title);
        EXPECT_EQ(lines.subtitle, c.lines.subtitle);
        EXPECT_EQ(lines.detail, c.lines.detail);
    }
}

} // namespace
