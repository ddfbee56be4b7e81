#include "media/ArtLoader.h"

#include "sonos/CappedReader.h"
#include "speaker/ArtworkCache.h"
#include "support/ReadyFuture.h"

#include <QFile>
#include <QFileInfo>
#include <QNetworkRequest>
#include <QPromise>
#include <QUrl>

#include <memory>

namespace {

using Art = std::optional<QByteArray>;

// Runs on the worker. Only a regular file is opened: a directory has nothing to read, and a
// device or a pipe could hand out bytes without end or keep the worker waiting.
Art readArt(const QString& path)
{
    const QFileInfo info(path);
    if (!info.isFile() || info.size() > ArtLoader::fileCap)
        return std::nullopt;
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        return std::nullopt;
    const QByteArray bytes = file.read(ArtLoader::fileCap + 1);
    if (bytes.isEmpty() || bytes.size() > ArtLoader::fileCap)
        return std::nullopt;
    return ArtworkCache::shrunkPng(bytes);
}

void settle(QPromise<Art>& promise, Art art)
{
    promise.addResult(std::move(art));
    promise.finish();
}

} // namespace

ArtLoader::ArtLoader(QObject* parent)
    : QObject(parent)
{
}

ArtLoader::~ArtLoader() = default;

QFuture<std::optional<QByteArray>> ArtLoader::load(const QString& artUrl)
{
    if (artUrl != m_url || m_art.isCanceled()) {
        m_url = artUrl;
        m_art = fetch(artUrl);
    }
    return m_art;
}

QFuture<std::optional<QByteArray>> ArtLoader::fetch(const QString& artUrl)
{
    const QUrl url(artUrl, QUrl::StrictMode);
    auto promise = std::make_shared<QPromise<Art>>();
    promise->start();
    if (url.isLocalFile()) {
        m_worker.async([promise, path = url.toLocalFile()] { settle(*promise, readArt(path)); });
        return promise->future();
    }
    if (!url.isValid() || url.host().isEmpty() ||
        (url.scheme() != u"http" && url.scheme() != u"https"))
        return readyFuture(Art());
    CappedReader::read(QNetworkRequest(url))
        .then(this, [this, promise, artUrl](const SonosResult<CappedReader::Response>& response) {
            if (!response || response->status != 200) {
                // A connection that failed may work when the panel asks next.
                if (!response && std::holds_alternative<TransportError>(response.error()) &&
                    m_url == artUrl)
                    m_url.clear();
                settle(*promise, std::nullopt);
                return;
            }
            m_worker.async([promise, body = response->body] {
                settle(*promise, ArtworkCache::shrunkPng(body));
            });
        });
    return promise->future();
}
