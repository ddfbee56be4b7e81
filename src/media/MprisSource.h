#pragma once

#include "media/ArtLoader.h"
#include "media/MediaSource.h"
#include "media/MprisPlayers.h"

#include <QObject>

class AudioDevice;

// The computer's media as its players publish it over MPRIS. What plays and which player
// the panel follows are answered from the live copy of the players at once; only the art
// may take a moment, and commands go out without waiting for the player. Main thread only.
class MprisSource : public QObject, public MediaSource {
    Q_OBJECT
public:
    static constexpr int commandTimeoutMs = 3000;

    // `audio` must outlive the source.
    MprisSource(QDBusConnection bus, const AudioDevice& audio, QObject* parent = nullptr);

    QFuture<std::optional<Item>> current() override;
    void send(Command command) override;

    const MprisPlayers& players() const { return m_players; }

private:
    const MprisPlayer* chosen() const;

    const AudioDevice& m_audio;
    MprisPlayers m_players;
    ArtLoader m_art;
};
