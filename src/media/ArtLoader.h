#pragma once

#include "support/SerialQueue.h"

#include <QByteArray>
#include <QFuture>
#include <QObject>
#include <QString>

#include <optional>

// Loads the cover art a media player names (mpris:artUrl): a local file read on a worker
// with a size cap, or an http(s) address read like the speaker's own art; either is decoded
// and shrunk on the worker. It keeps the art of the last address, which is the one the panel
// asks for every second. A serial object of the main thread.
class ArtLoader : public QObject {
    Q_OBJECT
public:
    static constexpr qint64 fileCap = 8 * 1024 * 1024;

    explicit ArtLoader(QObject* parent = nullptr);
    ~ArtLoader() override;

    // The art at `artUrl` as the panel's PNG; none when it cannot be read or is no image.
    QFuture<std::optional<QByteArray>> load(const QString& artUrl);

private:
    QFuture<std::optional<QByteArray>> fetch(const QString& artUrl);

    QString m_url;
    QFuture<std::optional<QByteArray>> m_art; // finished, or still loading
    // Last, so that it is the first to go: its jobs end before the rest of the loader does.
    SerialQueue m_worker;
};
