#include "speaker/NowPlayingLines.h"

#include "support/UiText.h"
#include "support/VisibleText.h"

namespace {

NowPlayingLines nothing()
{
    return {uiText("Nothing playing"), {}, {}};
}

NowPlayingLines shown(const QString& title, const QString& subtitle, const QString& detail)
{
    return {visibleText(title.trimmed()), visibleText(subtitle.trimmed()),
            visibleText(detail.trimmed())};
}

// Stations send the song as "Artist - Title"; anything else is shown whole. Players stand
// in "ZPSTR_CONNECTING" and the like while the stream starts, which is no song at all.
NowPlayingLines radio(const SonosDevice::NowPlaying& playing)
{
    const QString song = playing.streamContent.trimmed();
    if (song.isEmpty() || song.startsWith(u"ZPSTR_")) {
        if (playing.station.trimmed().isEmpty())
            return nothing();
        return shown(playing.station, {}, {});
    }
    const qsizetype dash = song.indexOf(u" - ");
    const QString artist = dash < 0 ? QString() : song.left(dash).trimmed();
    const QString title = dash < 0 ? QString() : song.mid(dash + 3).trimmed();
    if (artist.isEmpty() || title.isEmpty())
        return shown(song, {}, playing.station);
    return shown(title, artist, playing.station);
}

} // namespace

NowPlayingLines NowPlayingLines::of(const SonosDevice::NowPlaying& playing)
{
    if (playing.isLineInput())
        return {playing.uri.contains(u"htastream") ? uiText("TV") : uiText("Line-In"), {}, {}};
    if (playing.isStream())
        return radio(playing);
    if (playing.title.trimmed().isEmpty() && playing.artist.trimmed().isEmpty() &&
        playing.album.trimmed().isEmpty())
        return nothing();
    return shown(playing.title, playing.artist, playing.album);
}
