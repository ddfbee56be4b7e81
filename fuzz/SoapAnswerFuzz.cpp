// A player's SOAP answer, read as the client reads it: values scanned out by tag, unescaped,
// the track's metadata (an escaped document inside the answer) scanned again, numbers read,
// and the panel's now-playing lines made from what came out.
#include "FuzzInput.h"
#include "sonos/SoapAnswer.h"
#include "sonos/Tags.h"
#include "sonos/XmlText.h"
#include "speaker/NowPlayingLines.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    const QString body = fuzzText(data, size);
    const auto value = [](QStringView name, QStringView in) {
        return XmlText::unescape(Tags::element(name, in).value_or(QString()));
    };
    const QString metadata = value(u"TrackMetaData", body);
    SonosDevice::NowPlaying playing;
    playing.uri = value(u"TrackURI", body);
    playing.title = value(u"dc:title", metadata);
    playing.artist = value(u"dc:creator", metadata);
    playing.album = value(u"upnp:album", metadata);
    playing.albumArt = value(u"upnp:albumArtURI", metadata);
    playing.streamContent = value(u"r:streamContent", metadata);
    playing.station = value(u"dc:title", value(u"CurrentURIMetaData", body));
    NowPlayingLines::of(playing);
    SoapAnswer::decimalInteger(value(u"CurrentVolume", body));
    return 0;
}
