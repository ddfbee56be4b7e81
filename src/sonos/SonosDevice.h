#pragma once

#include "sonos/SonosError.h"

#include <QFuture>
#include <QString>
#include <QUrl>

#include <optional>

// One Sonos zone player: a few strings, copied freely, safe to pass between threads. Every
// operation is one SOAP request to the player's port 1400 and answers asynchronously on
// the calling thread's event loop; nothing here blocks.
class SonosDevice {
public:
    QString host;  // IPv4 address as text, used verbatim as the URL host
    QString uid;   // "RINCON_…", without "uuid:"
    QString name;  // room name
    QString model; // model name as the player reports it
    // The household it belongs to, as it announced itself in discovery ("Sonos_…"); empty
    // when unknown. Two households on one network may have rooms of the same name.
    QString household = {};

    struct NowPlaying {
        // Each field may be left out where one is made: a player leaves most of them empty.
        QString uri = {};
        QString title = {};
        QString artist = {};
        QString album = {};
        QString albumArt = {}; // usually relative to the player
        // A radio stream's current song as the station sends it, often "Artist - Title".
        QString streamContent = {};
        // A radio stream's station name; asked for only when `uri` is a stream.
        QString station = {};
        // A soundbar's TV input or a line-in stream.
        bool isLineInput() const;
        // A radio stream, whose track metadata names no song of its own.
        bool isStream() const;
        bool operator==(const NowPlaying&) const = default;
    };

    bool operator==(const SonosDevice&) const = default;

    QFuture<SonosResult<int>> volume() const;
    QFuture<SonosResult<bool>> isMuted() const;
    QFuture<SonosResult<Done>> setVolume(int volume) const; // clamped to 0...100
    QFuture<SonosResult<Done>> setMute(bool muted) const;
    QFuture<SonosResult<int>> groupVolume() const;
    QFuture<SonosResult<bool>> isGroupMuted() const;
    QFuture<SonosResult<Done>> setGroupVolume(int volume) const; // sent as given
    QFuture<SonosResult<Done>> setGroupMute(bool muted) const;
    // Takes the ratios of the group members' volumes as they stand; the group volume
    // changes after it keep them.
    QFuture<SonosResult<Done>> snapshotGroupVolume() const;
    // Whether the output is fixed at line level (a Port, Connect or Amp set so): then the
    // player refuses every volume change. A player without the setting is not fixed.
    QFuture<SonosResult<bool>> isOutputFixed() const;
    QFuture<SonosResult<bool>> eqBool(const QString& type) const; // "NightMode", "DialogLevel"
    QFuture<SonosResult<Done>> setEQ(const QString& type, bool on) const;
    // Speech enhancement is the switch "SpeechEnhanceEnabled" on the newer soundbars, where
    // "DialogLevel" is a level of its own; older ones switch "DialogLevel" itself. These ask
    // for the newer switch first and fall back when the player refuses it.
    QFuture<SonosResult<bool>> speechEnhancement() const;
    QFuture<SonosResult<Done>> setSpeechEnhancement(bool on) const;
    QFuture<SonosResult<bool>> isPlaying() const;
    QFuture<SonosResult<Done>> playPause() const;
    QFuture<SonosResult<Done>> next() const;
    QFuture<SonosResult<Done>> previous() const;
    // The track's metadata is read as far as it parses: a broken document or a failed
    // station lookup leaves only those fields empty.
    QFuture<SonosResult<NowPlaying>> nowPlaying() const;
    // The household's zone group state (ZoneGroupTopology), as the raw answer body.
    QFuture<SonosResult<QString>> zoneGroupState() const;

    // The player's AirPlay identity, derived from `uid`: the twelve hex digits after
    // "RINCON_", upper-cased.
    std::optional<QString> airplayReceiverID() const;

    // One SOAP request; answers the body as text.
    QFuture<SonosResult<QString>> soap(const QString& path, const QString& serviceType,
                                       const QString& action, const QString& arguments) const;

    static SonosResult<QUrl> url(const QString& host, const QString& path);

private:
    static QFuture<SonosResult<QString>> post(const QString& host, const QString& path,
                                              const QString& serviceType, const QString& action,
                                              const QByteArray& body);
};
