#include "speaker/ArtworkCache.h"

#include "sonos/CappedReader.h"
#include "support/ReadyFuture.h"

#include <QBuffer>
#include <QImage>
#include <QImageReader>
#include <QNetworkRequest>
#include <QUrl>

namespace {

// Where the art is: a path on the player, or an address of its own on the network.
std::optional<QUrl> resolved(const SonosDevice& device, const QString& albumArtUri)
{
    if (albumArtUri.startsWith(u'/')) {
        const SonosResult<QUrl> url = SonosDevice::url(device.host, albumArtUri);
        return url ? std::optional<QUrl>(*url) : std::nullopt;
    }
    const QUrl url(albumArtUri, QUrl::StrictMode);
    if (!url.isValid() || url.host().isEmpty() ||
        (url.scheme() != u"http" && url.scheme() != u"https"))
        return std::nullopt;
    return url;
}

} // namespace

ArtworkCache::ArtworkCache(QObject* parent)
    : QObject(parent)
{
}

ArtworkCache::~ArtworkCache() = default;

// Qt's own allocation limit turns away pictures that claim enormous dimensions before their
// pixels are read.
std::optional<QByteArray> ArtworkCache::shrunkPng(QByteArray encoded)
{
    QBuffer input(&encoded);
    QImageReader reader(&input);
    reader.setAutoTransform(true);
    QImage image = reader.read();
    if (image.isNull())
        return std::nullopt;
    if (image.width() > ArtworkCache::side || image.height() > ArtworkCache::side)
        image = image.scaled(ArtworkCache::side, ArtworkCache::side, Qt::KeepAspectRatio,
                             Qt::SmoothTransformation);
    QByteArray png;
    QBuffer output(&png);
    output.open(QIODevice::WriteOnly);
    if (!image.save(&output, "PNG"))
        return std::nullopt;
    return png;
}

QFuture<Artwork> ArtworkCache::artwork(const SonosDevice& device, const QString& albumArtUri)
{
    if (albumArtUri.isEmpty())
        return readyFuture(Artwork{});
    const std::optional<QUrl> url = resolved(device, albumArtUri);
    if (!url)
        return readyFuture(Artwork{albumArtUri, std::nullopt});
    const QString identity = url->toString(QUrl::FullyEncoded);
    if (const auto known = m_known.constFind(identity); known != m_known.constEnd())
        return readyFuture(*known);
    auto promise = std::make_shared<QPromise<Artwork>>();
    promise->start();
    const bool alreadyFetching = m_fetching.contains(identity);
    m_fetching[identity].waiting.push_back(promise);
    if (!alreadyFetching)
        fetch(identity);
    return promise->future();
}

void ArtworkCache::fetch(const QString& identity)
{
    CappedReader::read(QNetworkRequest(QUrl(identity)))
        .then(this, [this, identity](const SonosResult<CappedReader::Response>& response) {
            if (!response) {
                // A connection that failed may work next time; anything the player answered
                // would be answered again.
                const bool transient = std::holds_alternative<TransportError>(response.error());
                settle(Artwork{identity, std::nullopt}, !transient);
                return;
            }
            if (response->status != 200 || response->body.isEmpty()) {
                settle(Artwork{identity, std::nullopt}, true);
                return;
            }
            // The decoder goes first when the cache is destroyed, so `this` outlives every job;
            // an answer still queued then goes with the object.
            m_decoder.async([this, identity, body = response->body] {
                const Artwork artwork{identity, shrunkPng(body)};
                QMetaObject::invokeMethod(
                    this, [this, artwork] { settle(artwork, true); }, Qt::QueuedConnection);
            });
        });
}

void ArtworkCache::settle(const Artwork& artwork, bool remember)
{
    if (remember)
        this->remember(artwork);
    const Fetch fetch = m_fetching.take(artwork.identity);
    for (const auto& promise : fetch.waiting) {
        promise->addResult(artwork);
        promise->finish();
    }
}

void ArtworkCache::remember(const Artwork& artwork)
{
    m_recent.removeOne(artwork.identity);
    m_recent.append(artwork.identity);
    m_known.insert(artwork.identity, artwork);
    while (m_recent.size() > capacity)
        m_known.remove(m_recent.takeFirst());
}
