#pragma once

#include "media/MediaSource.h"

#include <QDBusConnection>
#include <QObject>
#include <QString>
#include <QVariantMap>

#include <functional>
#include <map>
#include <optional>

class QDBusMessage;

// What one player last said about itself.
struct MprisPlayer {
    QString busName; // org.mpris.MediaPlayer2.<name>
    QString owner;   // the unique name of its connection, which its signals come from
    std::optional<quint32> processId;
    MediaSource::Item item;
    bool paused = false; // "Paused" rather than "Stopped"
    // When it appeared or last began playing, on the table's own clock.
    quint64 startedAt = 0;
};

// The player the panel follows: of those playing, the one whose process sends sound to the
// sound server (`soundingProcesses`), then the one that started last; with none playing, the
// paused one that played last, so that the play button can resume it.
const MprisPlayer* choosePlayer(const std::map<QString, MprisPlayer>& players,
                                const QList<quint32>& soundingProcesses);

// A live copy of the MPRIS players on a bus. It hears of players coming and going
// (NameOwnerChanged) and of their changes (PropertiesChanged), asking each player only once,
// when it appears; players that never answer stay in the table with nothing playing. A
// serial object of the main thread.
class MprisPlayers : public QObject {
    Q_OBJECT
public:
    static constexpr int callTimeoutMs = 3000;
    static constexpr qsizetype longestText = 1000;

    explicit MprisPlayers(QDBusConnection bus, QObject* parent = nullptr);

    const std::map<QString, MprisPlayer>& players() const { return m_players; }
    QDBusConnection bus() const { return m_bus; }

private slots:
    void onNameOwnerChanged(const QString& name, const QString& oldOwner, const QString& newOwner);
    void onPropertiesChanged(const QDBusMessage& message);

private:
    void add(const QString& busName, const QString& owner);
    // Runs `answered` with the reply's first argument unless the call fails, times out or the
    // player has left or been replaced meanwhile.
    void ask(const QDBusMessage& call, const QString& busName, const QString& owner,
             std::function<void(MprisPlayer&, const QVariant&)> answered);
    void apply(MprisPlayer& player, const QVariantMap& properties);

    QDBusConnection m_bus;
    std::map<QString, MprisPlayer> m_players; // by bus name
    quint64 m_clock = 0;
};
