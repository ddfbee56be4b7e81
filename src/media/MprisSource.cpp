#include "media/MprisSource.h"

#include "audio/AudioDevice.h"
#include "desktop/SessionBus.h"
#include "support/Log.h"
#include "support/ReadyFuture.h"

#include <QDBusMessage>
#include <QDBusPendingCallWatcher>

namespace {

QString methodOf(MediaSource::Command command)
{
    switch (command) {
    case MediaSource::Command::playPause:
        return QStringLiteral("PlayPause");
    case MediaSource::Command::next:
        return QStringLiteral("Next");
    case MediaSource::Command::previous:
        return QStringLiteral("Previous");
    }
    return QStringLiteral("PlayPause");
}

} // namespace

std::unique_ptr<MediaSource> createMediaSource(const AudioDevice& audio)
{
    if (!hasSessionBus())
        return std::make_unique<NoMediaSource>();
    QDBusConnection bus = QDBusConnection::sessionBus();
    if (!bus.isConnected())
        return std::make_unique<NoMediaSource>();
    return std::make_unique<MprisSource>(bus, audio);
}

MprisSource::MprisSource(QDBusConnection bus, const AudioDevice& audio, QObject* parent)
    : QObject(parent)
    , m_audio(audio)
    , m_players(std::move(bus))
{
}

const MprisPlayer* MprisSource::chosen() const
{
    return choosePlayer(m_players.players(), m_audio.state().processIdsOutputting);
}

QFuture<std::optional<MediaSource::Item>> MprisSource::current()
{
    const MprisPlayer* player = chosen();
    if (!player)
        return readyFuture(std::optional<Item>());
    if (player->item.artUrl.isEmpty())
        return readyFuture(std::optional<Item>(player->item));
    return m_art.load(player->item.artUrl)
        .then(this, [item = player->item](const std::optional<QByteArray>& art) {
            std::optional<Item> answer = item;
            answer->artwork = art;
            return answer;
        });
}

void MprisSource::send(Command command)
{
    const MprisPlayer* player = chosen();
    if (!player)
        return;
    const QString method = methodOf(command);
    const QDBusMessage call =
        QDBusMessage::createMethodCall(player->owner, QStringLiteral("/org/mpris/MediaPlayer2"),
                                       QStringLiteral("org.mpris.MediaPlayer2.Player"), method);
    QDBusConnection bus = m_players.bus();
    auto* watcher = new QDBusPendingCallWatcher(bus.asyncCall(call, commandTimeoutMs), this);
    connect(watcher, &QDBusPendingCallWatcher::finished, this,
            [method, name = player->busName](QDBusPendingCallWatcher* w) {
                w->deleteLater();
                if (w->isError())
                    Log::info(QStringLiteral("media player %1 did not take %2 — %3")
                                  .arg(name, method, w->error().message()));
            });
}
