#pragma once

#include <QByteArray>
#include <QFuture>
#include <QString>

#include <memory>
#include <optional>

class AudioDevice;

// The computer's own now-playing application: what it plays, and its transport. The panel
// shows it while no speaker is connected or while the speaker only plays the computer's sound
// (its line input), and sends the transport buttons to it then. Main thread only; answers
// come back on the main thread's event loop.
class MediaSource {
public:
    struct Item {
        QString title;
        QString artist;
        QString album;
        bool playing = false;
        QString artUrl;
        // The art at `artUrl` as PNG bytes no larger than the panel's art; none when there is
        // no art or it cannot be read.
        std::optional<QByteArray> artwork;
        // The desktop entry of the playing application, whose icon stands in for cover art.
        QString desktopEntry;

        bool operator==(const Item&) const = default;
    };

    enum class Command { playPause, next, previous };

    virtual ~MediaSource() = default;

    // What plays now, with its art once that is loaded; absent when no application offers
    // anything.
    virtual QFuture<std::optional<Item>> current() = 0;
    // Hands a transport command to the playing application; nothing happens without one.
    virtual void send(Command command) = 0;
};

// For desktops where no now-playing application can be asked: nothing plays, and commands
// go nowhere.
class NoMediaSource : public MediaSource {
public:
    QFuture<std::optional<Item>> current() override;
    void send(Command command) override;
};

// The players of the session bus (MPRIS) where there is one, else NoMediaSource. `audio` tells
// which process sends sound to the server and must outlive the source.
std::unique_ptr<MediaSource> createMediaSource(const AudioDevice& audio);
