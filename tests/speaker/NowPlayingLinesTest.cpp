#include "speaker/NowPlayingLines.h"

#include <gtest/gtest.h>

#include <ostream>

void PrintTo(const NowPlayingLines& lines, std::ostream* out)
{
    *out << '"' << lines.title.toStdString() << "\" / \"" << lines.subtitle.toStdString()
         << "\" / \"" << lines.detail.toStdString() << '"';
}

namespace {

TEST(NowPlayingLines, EachKindOfSourceHasItsLines)
{
    const QString radio = "x-sonosapi-stream:s24896?sid=254&flags=8224&sn=0";
    const std::pair<SonosDevice::NowPlaying, NowPlayingLines> cases[] = {
        {{}, {"Nothing playing", "", ""}},
        {{.uri = "x-file-cifs://nas/a.flac",
          .title = "So What",
          .artist = "Miles Davis",
          .album = "Kind of Blue"},
         {"So What", "Miles Davis", "Kind of Blue"}},
        {{.uri = radio,
          .title = radio,
          .streamContent = "Daft Punk - One More Time",
          .station = "Radio X"},
         {"One More Time", "Daft Punk", "Radio X"}},
        {{.uri = "x-rincon-mp3radio://radio.example/live",
          .streamContent = "The Morning Show",
          .station = "Radio X"},
         {"The Morning Show", "", "Radio X"}},
        {{.uri = "aac://radio.example/live", .station = "Radio X"}, {"Radio X", "", ""}},
        {{.uri = radio, .streamContent = "ZPSTR_CONNECTING", .station = "Radio X"},
         {"Radio X", "", ""}},
        {{.uri = radio, .title = radio}, {"Nothing playing", "", ""}},
        {{.uri = "x-sonos-htastream:RINCON_38420B91A2C401400:spdif", .title = "TV"},
         {"TV", "", ""}},
        {{.uri = "x-rincon-stream:RINCON_B8E9374A1F0001400", .title = "Line-In"},
         {"Line-In", "", ""}},
        {{.uri = "x-sonos-spotify:t",
          .title = "Clear\x1b[2J",
          .artist = "A\nB",
          .album = "\u202eevil"},
         {"Clear\\e[2J", "A\\nB", "\\u202eevil"}},
    };
    for (const auto& [playing, lines] : cases)
        EXPECT_EQ(NowPlayingLines::of(playing), lines) << playing.uri.toStdString();
}

} // namespace
