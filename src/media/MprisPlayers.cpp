#include "media/MprisPlayers.h"

#include <QDBusArgument>
#include <QDBusMessage>
#include <QDBusPendingCallWatcher>
#include <QDBusPendingReply>
#include <QDBusVariant>

#include <tuple>

namespace {

const QString busService = QStringLiteral("org.freedesktop.DBus");
const QString busPath = QStringLiteral("/org/freedesktop/DBus");
const QString playerPrefix = QStringLiteral("org.mpris.MediaPlayer2.");
const QString mprisPath = QStringLiteral("/org/mpris/MediaPlayer2");
const QString rootInterface = QStringLiteral("org.mpris.MediaPlayer2");
const QString playerInterface = QStringLiteral("org.mpris.MediaPlayer2.Player");
const QString propertiesInterface = QStringLiteral("org.freedesktop.DBus.Properties");

// Players fill their properties as they please: a value of another type than MPRIS names
// counts as absent, and a dictionary is read only when it is one.
QVariant unwrapped(QVariant value)
{
    while (value.metaType() == QMetaType::fromType<QDBusVariant>())
        value = value.value<QDBusVariant>().variant();
    return value;
}

QVariantMap dictionary(const QVariant& value)
{
    const QVariant v = unwrapped(value);
    if (v.metaType() == QMetaType::fromType<QVariantMap>())
        return v.toMap();
    if (v.metaType() != QMetaType::fromType<QDBusArgument>())
        return {};
    const auto argument = v.value<QDBusArgument>();
    if (argument.currentSignature() != u"a{sv}")
        return {};
    QVariantMap map;
    argument >> map;
    return map;
}

QString text(const QVariant& value)
{
    const QVariant v = unwrapped(value);
    if (v.metaType() == QMetaType::fromType<QStringList>())
        return v.toStringList().join(QStringLiteral(", ")).left(MprisPlayers::longestText);
    if (v.metaType() != QMetaType::fromType<QString>())
        return {};
    return v.toString().left(MprisPlayers::longestText);
}

} // namespace

const MprisPlayer* choosePlayer(const std::map<QString, MprisPlayer>& players,
                                const QList<quint32>& soundingProcesses)
{
    const auto rank = [&](const MprisPlayer& p) {
        const bool sounding = p.processId && soundingProcesses.contains(*p.processId);
        return std::tuple(p.item.playing, p.item.playing && sounding, p.startedAt);
    };
    const MprisPlayer* chosen = nullptr;
    for (const auto& [name, player] : players) {
        if ((player.item.playing || player.paused) && (!chosen || rank(player) > rank(*chosen)))
            chosen = &player;
    }
    return chosen;
}

MprisPlayers::MprisPlayers(QDBusConnection bus, QObject* parent)
    : QObject(parent)
    , m_bus(std::move(bus))
{
    m_bus.connect(busService, busPath, busService, QStringLiteral("NameOwnerChanged"), this,
                  SLOT(onNameOwnerChanged(QString, QString, QString)));
    // One subscription for every player; the sender tells them apart.
    m_bus.connect(QString(), mprisPath, propertiesInterface, QStringLiteral("PropertiesChanged"),
                  this, SLOT(onPropertiesChanged(QDBusMessage)));

    // The players already there; those that come later announce themselves.
    const QDBusMessage list = QDBusMessage::createMethodCall(busService, busPath, busService,
                                                             QStringLiteral("ListNames"));
    auto* watcher = new QDBusPendingCallWatcher(m_bus.asyncCall(list, callTimeoutMs), this);
    connect(watcher, &QDBusPendingCallWatcher::finished, this, [this](QDBusPendingCallWatcher* w) {
        w->deleteLater();
        const QDBusPendingReply<QStringList> names = *w;
        for (const QString& name : names.value()) {
            if (!name.startsWith(playerPrefix))
                continue;
            QDBusMessage owner = QDBusMessage::createMethodCall(busService, busPath, busService,
                                                                QStringLiteral("GetNameOwner"));
            owner << name;
            auto* ownerWatcher =
                new QDBusPendingCallWatcher(m_bus.asyncCall(owner, callTimeoutMs), this);
            connect(ownerWatcher, &QDBusPendingCallWatcher::finished, this,
                    [this, name](QDBusPendingCallWatcher* ow) {
                        ow->deleteLater();
                        const QDBusPendingReply<QString> reply = *ow;
                        if (!reply.isError())
                            add(name, reply.value());
                    });
        }
    });
}

void MprisPlayers::onNameOwnerChanged(const QString& name, const QString&, const QString& newOwner)
{
    if (!name.startsWith(playerPrefix))
        return;
    if (newOwner.isEmpty())
        m_players.erase(name);
    else
        add(name, newOwner);
}

void MprisPlayers::add(const QString& busName, const QString& owner)
{
    const auto known = m_players.find(busName);
    if (known != m_players.end() && known->second.owner == owner)
        return;
    MprisPlayer& player = m_players[busName];
    player = MprisPlayer{busName, owner, std::nullopt, {}, false, ++m_clock};

    QDBusMessage pid = QDBusMessage::createMethodCall(busService, busPath, busService,
                                                      QStringLiteral("GetConnectionUnixProcessID"));
    pid << owner;
    ask(pid, busName, owner,
        [](MprisPlayer& p, const QVariant& value) { p.processId = value.toUInt(); });
    // Asked before what plays: a player answers in turn, so its icon comes with its lines.
    QDBusMessage entry = QDBusMessage::createMethodCall(owner, mprisPath, propertiesInterface,
                                                        QStringLiteral("Get"));
    entry << rootInterface << QStringLiteral("DesktopEntry");
    ask(entry, busName, owner,
        [](MprisPlayer& p, const QVariant& value) { p.item.desktopEntry = text(value); });
    QDBusMessage all = QDBusMessage::createMethodCall(owner, mprisPath, propertiesInterface,
                                                      QStringLiteral("GetAll"));
    all << playerInterface;
    ask(all, busName, owner,
        [this](MprisPlayer& p, const QVariant& value) { apply(p, dictionary(value)); });
}

void MprisPlayers::ask(const QDBusMessage& call, const QString& busName, const QString& owner,
                       std::function<void(MprisPlayer&, const QVariant&)> answered)
{
    auto* watcher = new QDBusPendingCallWatcher(m_bus.asyncCall(call, callTimeoutMs), this);
    connect(watcher, &QDBusPendingCallWatcher::finished, this,
            [this, busName, owner, answered](QDBusPendingCallWatcher* w) {
                w->deleteLater();
                const QDBusMessage reply = w->reply();
                const auto player = m_players.find(busName);
                if (reply.type() != QDBusMessage::ReplyMessage || reply.arguments().isEmpty() ||
                    player == m_players.end() || player->second.owner != owner)
                    return;
                answered(player->second, reply.arguments().constFirst());
            });
}

void MprisPlayers::onPropertiesChanged(const QDBusMessage& message)
{
    const QList<QVariant> arguments = message.arguments();
    if (arguments.size() < 2 || arguments.at(0).toString() != playerInterface)
        return;
    for (auto& [name, player] : m_players) {
        if (player.owner == message.service()) {
            apply(player, dictionary(arguments.at(1)));
            return;
        }
    }
}

void MprisPlayers::apply(MprisPlayer& player, const QVariantMap& properties)
{
    if (const auto status = properties.constFind(QStringLiteral("PlaybackStatus"));
        status != properties.constEnd()) {
        const QString value = text(*status);
        const bool playing = value == u"Playing";
        if (playing && !player.item.playing)
            player.startedAt = ++m_clock;
        player.item.playing = playing;
        player.paused = value == u"Paused";
    }
    if (const auto metadata = properties.constFind(QStringLiteral("Metadata"));
        metadata != properties.constEnd()) {
        const QVariantMap fields = dictionary(*metadata);
        player.item.title = text(fields.value(QStringLiteral("xesam:title")));
        player.item.artist = text(fields.value(QStringLiteral("xesam:artist")));
        player.item.album = text(fields.value(QStringLiteral("xesam:album")));
        player.item.artUrl = text(fields.value(QStringLiteral("mpris:artUrl")));
    }
}
