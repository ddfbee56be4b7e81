#include "sonos/SonosDevice.h"

#include "sonos/CappedReader.h"
#include "sonos/SoapAnswer.h"
#include "sonos/SoapEnvelope.h"
#include "sonos/SonosService.h"
#include "sonos/Tags.h"
#include "sonos/XmlText.h"

#include <QNetworkRequest>

#include <algorithm>

namespace {

const QString channel = QStringLiteral("<Channel>Master</Channel>");

SpeakerError badResponse()
{
    return SonosError::badResponse();
}

QString digit(bool on)
{
    return on ? QStringLiteral("1") : QStringLiteral("0");
}

template <typename T>
QFuture<SonosResult<T>> failed(SpeakerError error)
{
    return QtFuture::makeReadyFuture(SonosResult<T>(std::move(error)));
}

// Reads one value out of a successful answer; a failed request passes its error on.
template <typename T, typename Read>
QFuture<SonosResult<T>> answer(QFuture<SonosResult<QString>> request, Read read)
{
    return request.then([read](const SonosResult<QString>& body) -> SonosResult<T> {
        if (!body)
            return body.error();
        return read(*body);
    });
}

SonosResult<int> integerAnswer(const QString& body)
{
    const std::optional<QString> text = Tags::element(u"CurrentVolume", body);
    if (!text)
        return badResponse();
    const std::optional<qint64> value = SoapAnswer::decimalInteger(*text);
    // A volume that does not fit an int is as meaningless as one that is not a number.
    if (!value || *value < std::numeric_limits<int>::min() ||
        *value > std::numeric_limits<int>::max())
        return badResponse();
    return static_cast<int>(*value);
}

// Mute is reported off when the player leaves the element out.
SonosResult<bool> muteAnswer(const QString& body)
{
    return Tags::element(u"CurrentMute", body) == QStringLiteral("1");
}

// A missing EQ value means the player has no such setting, which is not the same as off.
SonosResult<bool> eqAnswer(const QString& body)
{
    const std::optional<QString> value = Tags::element(u"CurrentValue", body);
    if (!value)
        return badResponse();
    return *value == QStringLiteral("1");
}

SonosResult<bool> playingAnswer(const QString& body)
{
    return Tags::element(u"CurrentTransportState", body) == QStringLiteral("PLAYING");
}

// Every value travels escaped; metadata is an escaped document whose own values are
// escaped once more.
QString unescapedElement(QStringView name, QStringView in)
{
    return XmlText::unescape(Tags::element(name, in).value_or(QString()));
}

SonosResult<SonosDevice::NowPlaying> nowPlayingAnswer(const QString& body)
{
    const QString metadata = unescapedElement(u"TrackMetaData", body);
    auto field = [&](QStringView name) { return unescapedElement(name, metadata); };
    SonosDevice::NowPlaying playing;
    playing.uri = unescapedElement(u"TrackURI", body);
    playing.title = field(u"dc:title");
    playing.artist = field(u"dc:creator");
    playing.album = field(u"upnp:album");
    playing.albumArt = field(u"upnp:albumArtURI");
    playing.streamContent = field(u"r:streamContent");
    return playing;
}

// The station of a stream is the title of the media the player was told to play.
QString stationAnswer(const SonosResult<QString>& body)
{
    if (!body)
        return {};
    return unescapedElement(u"dc:title", unescapedElement(u"CurrentURIMetaData", *body));
}

SonosResult<Done> doneAnswer(const QString&)
{
    return Done{};
}

// A player without the asked action or setting refuses it with a SOAP fault; one that is
// unreachable or answers nonsense has not said anything about what it has.
template <typename T>
bool refused(const SonosResult<T>& result)
{
    if (result)
        return false;
    const auto* error = std::get_if<SonosError>(&result.error());
    return error && error->kind == SonosError::Kind::Http && error->status >= 400;
}

} // namespace

bool SonosDevice::NowPlaying::isLineInput() const
{
    return uri.contains(u"htastream") || uri.contains(u"x-rincon-stream");
}

bool SonosDevice::NowPlaying::isStream() const
{
    return uri.startsWith(u"x-sonosapi-stream:") || uri.startsWith(u"x-rincon-mp3radio:") ||
           uri.startsWith(u"aac:") || uri.startsWith(u"x-sonosapi-hls:");
}

SonosResult<QUrl> SonosDevice::url(const QString& host, const QString& path)
{
    const QUrl url(QStringLiteral("http://") + host + QStringLiteral(":1400") + path,
                   QUrl::StrictMode);
    if (!url.isValid() || url.host().isEmpty())
        return badResponse();
    return url;
}

QFuture<SonosResult<QString>> SonosDevice::soap(const QString& path, const QString& serviceType,
                                                const QString& action,
                                                const QString& arguments) const
{
    return post(host, path, serviceType, action,
                SoapEnvelope::body(serviceType, action, arguments));
}

QFuture<SonosResult<QString>> SonosDevice::post(const QString& host, const QString& path,
                                                const QString& serviceType, const QString& action,
                                                const QByteArray& body)
{
    const SonosResult<QUrl> address = url(host, path);
    if (!address)
        return failed<QString>(address.error());
    QNetworkRequest request(*address);
    request.setRawHeader("Content-Type", "text/xml; charset=\"utf-8\"");
    request.setRawHeader("SOAPACTION", SoapEnvelope::actionHeader(serviceType, action));
    return CappedReader::read(request, body)
        .then([](const SonosResult<CappedReader::Response>& response) -> SonosResult<QString> {
            if (!response)
                return response.error();
            if (response->status != 200)
                return SpeakerError{SonosError::http(response->status)};
            return QString::fromUtf8(response->body);
        });
}

namespace {

QFuture<SonosResult<QString>> call(const SonosDevice& device, const SonosService& service,
                                   const char* action, const QString& arguments = {})
{
    return device.soap(QLatin1String(service.controlPath), QLatin1String(service.type),
                       QLatin1String(action), arguments);
}

} // namespace

QFuture<SonosResult<int>> SonosDevice::volume() const
{
    return answer<int>(call(*this, SonosServices::renderingControl, "GetVolume", channel),
                       integerAnswer);
}

QFuture<SonosResult<bool>> SonosDevice::isMuted() const
{
    return answer<bool>(call(*this, SonosServices::renderingControl, "GetMute", channel),
                        muteAnswer);
}

QFuture<SonosResult<Done>> SonosDevice::setVolume(int volume) const
{
    const int clamped = std::clamp(volume, 0, 100);
    return answer<Done>(
        call(*this, SonosServices::renderingControl, "SetVolume",
             channel + QStringLiteral("<DesiredVolume>%1</DesiredVolume>").arg(clamped)),
        doneAnswer);
}

QFuture<SonosResult<Done>> SonosDevice::setMute(bool muted) const
{
    return answer<Done>(
        call(*this, SonosServices::renderingControl, "SetMute",
             channel + QStringLiteral("<DesiredMute>%1</DesiredMute>").arg(digit(muted))),
        doneAnswer);
}

QFuture<SonosResult<int>> SonosDevice::groupVolume() const
{
    return answer<int>(call(*this, SonosServices::groupRenderingControl, "GetGroupVolume"),
                       integerAnswer);
}

QFuture<SonosResult<bool>> SonosDevice::isGroupMuted() const
{
    return answer<bool>(call(*this, SonosServices::groupRenderingControl, "GetGroupMute"),
                        muteAnswer);
}

QFuture<SonosResult<Done>> SonosDevice::setGroupVolume(int volume) const
{
    return answer<Done>(call(*this, SonosServices::groupRenderingControl, "SetGroupVolume",
                             QStringLiteral("<DesiredVolume>%1</DesiredVolume>").arg(volume)),
                        doneAnswer);
}

QFuture<SonosResult<Done>> SonosDevice::setGroupMute(bool muted) const
{
    return answer<Done>(call(*this, SonosServices::groupRenderingControl, "SetGroupMute",
                             QStringLiteral("<DesiredMute>%1</DesiredMute>").arg(digit(muted))),
                        doneAnswer);
}

QFuture<SonosResult<Done>> SonosDevice::snapshotGroupVolume() const
{
    return answer<Done>(call(*this, SonosServices::groupRenderingControl, "SnapshotGroupVolume"),
                        doneAnswer);
}

QFuture<SonosResult<bool>> SonosDevice::isOutputFixed() const
{
    return call(*this, SonosServices::renderingControl, "GetOutputFixed")
        .then([](const SonosResult<QString>& body) -> SonosResult<bool> {
            if (refused(body))
                return false;
            if (!body)
                return body.error();
            return Tags::element(u"CurrentFixed", *body) == QStringLiteral("1");
        });
}

QFuture<SonosResult<bool>> SonosDevice::eqBool(const QString& type) const
{
    return answer<bool>(call(*this, SonosServices::renderingControl, "GetEQ",
                             QStringLiteral("<EQType>%1</EQType>").arg(type)),
                        eqAnswer);
}

QFuture<SonosResult<Done>> SonosDevice::setEQ(const QString& type, bool on) const
{
    return answer<Done>(call(*this, SonosServices::renderingControl, "SetEQ",
                             QStringLiteral("<EQType>%1</EQType><DesiredValue>%2</DesiredValue>")
                                 .arg(type, digit(on))),
                        doneAnswer);
}

namespace {

const QString speechSwitch = QStringLiteral("SpeechEnhanceEnabled");
const QString dialogLevel = QStringLiteral("DialogLevel");

} // namespace

QFuture<SonosResult<bool>> SonosDevice::speechEnhancement() const
{
    const SonosDevice device = *this;
    return eqBool(speechSwitch)
        .then([device](const SonosResult<bool>& on) {
            return refused(on) ? device.eqBool(dialogLevel) : QtFuture::makeReadyFuture(on);
        })
        .unwrap();
}

QFuture<SonosResult<Done>> SonosDevice::setSpeechEnhancement(bool on) const
{
    const SonosDevice device = *this;
    return setEQ(speechSwitch, on)
        .then([device, on](const SonosResult<Done>& done) {
            return refused(done) ? device.setEQ(dialogLevel, on) : QtFuture::makeReadyFuture(done);
        })
        .unwrap();
}

QFuture<SonosResult<bool>> SonosDevice::isPlaying() const
{
    return answer<bool>(call(*this, SonosServices::avTransport, "GetTransportInfo"), playingAnswer);
}

QFuture<SonosResult<Done>> SonosDevice::playPause() const
{
    const SonosDevice device = *this;
    return isPlaying()
        .then([device](const SonosResult<bool>& playing) -> QFuture<SonosResult<Done>> {
            if (!playing)
                return failed<Done>(playing.error());
            if (*playing)
                return answer<Done>(call(device, SonosServices::avTransport, "Pause"), doneAnswer);
            return answer<Done>(call(device, SonosServices::avTransport, "Play",
                                     QStringLiteral("<Speed>1</Speed>")),
                                doneAnswer);
        })
        .unwrap();
}

QFuture<SonosResult<Done>> SonosDevice::next() const
{
    return answer<Done>(call(*this, SonosServices::avTransport, "Next"), doneAnswer);
}

QFuture<SonosResult<Done>> SonosDevice::previous() const
{
    return answer<Done>(call(*this, SonosServices::avTransport, "Previous"), doneAnswer);
}

QFuture<SonosResult<SonosDevice::NowPlaying>> SonosDevice::nowPlaying() const
{
    const SonosDevice device = *this;
    return answer<NowPlaying>(call(*this, SonosServices::avTransport, "GetPositionInfo"),
                              nowPlayingAnswer)
        .then([device](const SonosResult<NowPlaying>& playing) {
            if (!playing || !playing->isStream())
                return QtFuture::makeReadyFuture(playing);
            // Without the station the song still shows, so a failed lookup fails nothing.
            return call(device, SonosServices::avTransport, "GetMediaInfo")
                .then([playing](const SonosResult<QString>& media) -> SonosResult<NowPlaying> {
                    NowPlaying withStation = *playing;
                    withStation.station = stationAnswer(media);
                    return withStation;
                });
        })
        .unwrap();
}

QFuture<SonosResult<QString>> SonosDevice::zoneGroupState() const
{
    const auto& service = SonosServices::zoneGroupTopology;
    const QString type = QLatin1String(service.type);
    const QString action = QStringLiteral("GetZoneGroupState");
    return post(host, QLatin1String(service.controlPath), type, action,
                SoapEnvelope::emptyActionBody(type, action));
}

std::optional<QString> SonosDevice::airplayReceiverID() const
{
    const QString prefix = QStringLiteral("RINCON_");
    if (!uid.startsWith(prefix) || uid.size() < prefix.size() + 12)
        return std::nullopt;
    return uid.mid(prefix.size(), 12).toUpper();
}
