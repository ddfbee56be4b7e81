#pragma once

#include "sonos/SonosDevice.h"
#include "support/SerialQueue.h"

#include <QByteArray>
#include <QFuture>
#include <QHash>
#include <QObject>
#include <QPromise>
#include <QString>
#include <QStringList>

#include <memory>
#include <optional>
#include <vector>

// Cover art as the panel shows it: the resolved address it came from, and the picture as
// PNG bytes no larger than the panel's art at scale 2; no image when there is none to show.
struct Artwork {
    QString identity;
    std::optional<QByteArray> image;

    bool operator==(const Artwork&) const = default;
};

// Fetches, shrinks and keeps the cover art of the last few tracks, so that a now-playing
// snapshot taken every second asks the speaker once per track. A serial object of the main
// thread: the fetch answers there, the decoding and scaling run on a worker.
class ArtworkCache : public QObject {
    Q_OBJECT
public:
    static constexpr int side = 168; // 84 points at scale 2
    static constexpr int capacity = 8;

    explicit ArtworkCache(QObject* parent = nullptr);
    ~ArtworkCache() override;

    // The art at `albumArtUri`, resolved against the player when it is relative. Art that
    // cannot be fetched, is too large or is no image answers without an image; only a
    // failed connection is asked again next time. Asks for the same art while it is being
    // fetched share that fetch.
    QFuture<Artwork> artwork(const SonosDevice& device, const QString& albumArtUri);

    // `encoded` as the panel's PNG, or none when it is no image. Slow: for a worker thread.
    static std::optional<QByteArray> shrunkPng(QByteArray encoded);

private:
    struct Fetch {
        std::vector<std::shared_ptr<QPromise<Artwork>>> waiting;
    };

    void fetch(const QString& identity);
    void settle(const Artwork& artwork, bool remember);
    void remember(const Artwork& artwork);

    QHash<QString, Artwork> m_known;
    QStringList m_recent; // identities in m_known, the oldest first
    QHash<QString, Fetch> m_fetching;
    // Last, so that it is the first to go: its jobs end before the rest of the cache does.
    SerialQueue m_decoder;
};
