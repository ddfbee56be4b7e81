#include "discovery/ZoneTopology.h"

#include "discovery/SonosDiscovery.h"
#include "sonos/EventSubscription.h"
#include "support/LockedBox.h"
#include "support/Log.h"
#include "support/ReadyFuture.h"

#include <QPromise>
#include <QTimer>

#include <algorithm>
#include <memory>

namespace ZoneTopology {

namespace {

// The last "hiding bonded satellites" line written, so that a panel refreshing every
// second does not repeat it.
LockedBox<QString> hiddenLog;

template <typename T>
void deliver(QPromise<T>& promise, T value)
{
    promise.addResult(std::move(value));
    promise.finish();
}

// A player that neither answers nor refuses holds up the group state for no longer than
// this before the next one is asked as well; all of them together for no longer than the
// deadline (shorter than one request's own time-out), after which the room names and models
// decide.
constexpr std::chrono::milliseconds kNextAskAfter{500};
constexpr std::chrono::milliseconds kTopologyDeadline{4000};

// Asks the devices for the group state until one answers: the first at once, the next
// after a refusal or when the ones asked keep silent too long. Then the players that answer
// marks hidden are asked themselves (`confirming`).
struct Asking {
    QList<SonosDevice> devices;
    qsizetype next = 0;
    QList<SonosDevice> waitingFor;
    bool confirming = false;
    bool settled = false;
    QPromise<QList<SonosDevice>> promise;

    void settle(const QList<SonosDevice>& visible)
    {
        settled = true;
        deliver(promise, visible);
    }
};

void giveUp(const std::shared_ptr<Asking>& asking)
{
    if (!asking->waitingFor.isEmpty()) {
        QStringList late;
        for (const SonosDevice& device : std::as_const(asking->waitingFor))
            late.append(device.name + QStringLiteral(" at ") + device.host);
        Log::info(QStringLiteral("topology: no answer in time from ") +
                  late.join(QStringLiteral(", ")));
    }
    const QList<SonosDevice> leaders = roomLeaders(asking->devices);
    Log::info(QStringLiteral("no zone answered GetZoneGroupState; listing %1 of %2 players, "
                             "one per room")
                  .arg(leaders.size())
                  .arg(asking->devices.size()));
    asking->settle(leaders);
}

// Players of large households refuse GetZoneGroupState, yet send the same group state to
// a subscriber of their topology events, in the first event. The wait for it is short, so
// that the topology as a whole still settles within its deadline; and once no event came
// from a household (a firewall in the way), its players are not asked that way again for a
// while, so a refusing household costs one wait, not one per question.
constexpr std::chrono::milliseconds kEventWait{1500};
constexpr std::chrono::minutes kEventsRestAfterSilence{5};

struct EventReading {
    QHash<QString, std::chrono::steady_clock::time_point> silentSince; // by household
    QSet<QString> reading; // households read by event, said once in the log
};
LockedBox<EventReading> eventReading;

// The group state from the topology event of `device`, which refused it with `status`.
QFuture<std::optional<QString>> groupStateFromEvent(const SonosDevice& device, int status)
{
    const auto refused = [device, status] {
        Log::info(QStringLiteral("topology: ") + device.name + QStringLiteral(" answered ") +
                  QString::number(status));
        return std::optional<QString>();
    };
    const auto now = std::chrono::steady_clock::now();
    const bool resting = eventReading.with([&](EventReading& r) {
        const auto silent = r.silentSince.find(device.household);
        return silent != r.silentSince.end() && now - *silent < kEventsRestAfterSilence;
    });
    if (resting)
        return readyFuture(refused());
    return firstEventProperty(device, QStringLiteral("/ZoneGroupTopology/Event"),
                              QStringLiteral("ZoneGroupState"), kEventWait)
        .then([device, refused](const std::optional<QString>& state) {
            const bool first = eventReading.with([&](EventReading& r) {
                if (!state) {
                    r.silentSince.insert(device.household, std::chrono::steady_clock::now());
                    r.reading.remove(device.household);
                    return false;
                }
                r.silentSince.remove(device.household);
                if (r.reading.contains(device.household))
                    return false;
                r.reading.insert(device.household);
                return true;
            });
            if (!state)
                return refused();
            if (first)
                Log::info(QStringLiteral("topology: ") + device.name +
                          QStringLiteral(" refuses GetZoneGroupState; reading the household's "
                                         "group state from its topology events"));
            return state;
        });
}

QString hiddenLine(const QList<SonosDevice>& removed)
{
    QStringList entries;
    for (const SonosDevice& device : removed)
        entries.append(device.name + QStringLiteral(" (") + device.model + QStringLiteral(") at ") +
                       device.host);
    return QStringLiteral("hiding bonded satellites: ") + entries.join(QStringLiteral(", "));
}

QList<SonosDevice> withoutMarked(const QList<SonosDevice>& devices, const QSet<QString>& invisible)
{
    if (invisible.isEmpty())
        return devices;
    QList<SonosDevice> kept;
    QList<SonosDevice> removed;
    for (const SonosDevice& device : devices)
        (invisible.contains(device.uid.toUpper()) ? removed : kept).append(device);
    if (kept.isEmpty()) {
        Log::info(QStringLiteral("topology hid every zone; ignoring it"));
        return devices;
    }
    if (removed.isEmpty())
        return kept;
    const QString line = hiddenLine(removed);
    if (hiddenLog.with([&line](QString& last) { return std::exchange(last, line) != line; }))
        Log::info(line);
    return kept;
}

// A player is hidden only when its own group state agrees with the answer that marks it: a
// bonded satellite's does, while a room that some other device on the network marks falsely
// answers for itself and stays. A marked player that cannot be asked stays hidden.
void confirmMarks(const std::shared_ptr<Asking>& asking, const QString& answer)
{
    const QSet<QString> marked = invisibleUIDs(answer);
    QList<SonosDevice> toAsk;
    for (const SonosDevice& device : std::as_const(asking->devices))
        if (marked.contains(device.uid.toUpper()))
            toAsk.append(device);
    if (toAsk.isEmpty())
        return asking->settle(asking->devices);
    asking->confirming = true;
    auto pending = std::make_shared<qsizetype>(toAsk.size());
    auto confirmed = std::make_shared<QSet<QString>>();
    for (const SonosDevice& device : std::as_const(toAsk)) {
        const QString uid = device.uid.toUpper();
        zoneGroupState(device).then(
            [asking, pending, confirmed, uid, device](const std::optional<QString>& own) {
                if (!own || invisibleUIDs(*own).contains(uid))
                    confirmed->insert(uid);
                else
                    Log::info(QStringLiteral("topology: ") + device.name + QStringLiteral(" at ") +
                              device.host + QStringLiteral(" says it is no satellite; keeping it"));
                if (--*pending == 0 && !asking->settled)
                    asking->settle(withoutMarked(asking->devices, *confirmed));
            });
    }
}

void askNext(const std::shared_ptr<Asking>& asking)
{
    if (asking->settled || asking->confirming)
        return;
    if (asking->next >= asking->devices.size()) {
        if (asking->waitingFor.isEmpty())
            giveUp(asking);
        return;
    }
    const SonosDevice device = asking->devices.at(asking->next++);
    asking->waitingFor.append(device);
    zoneGroupState(device).then([asking, device](const std::optional<QString>& answer) {
        asking->waitingFor.removeOne(device);
        if (asking->settled || asking->confirming)
            return;
        if (answer)
            return confirmMarks(asking, *answer);
        askNext(asking);
    });
    QTimer::singleShot(kNextAskAfter, [asking] { askNext(asking); });
}

// The visible players of several households, put back in the order they were asked in.
struct Merging {
    QList<SonosDevice> devices;
    QList<SonosDevice> kept;
    qsizetype pending = 0;
    QPromise<QList<SonosDevice>> promise;

    void add(const QList<SonosDevice>& visible)
    {
        kept.append(visible);
        if (--pending > 0)
            return;
        QList<SonosDevice> ordered;
        for (const SonosDevice& device : devices)
            if (kept.contains(device))
                ordered.append(device);
        deliver(promise, ordered);
    }
};

struct Gathering {
    QList<ZoneState> zones;
    qsizetype pending = 0;
    QPromise<QList<ZoneState>> promise;

    void add(ZoneState zone)
    {
        zones.append(std::move(zone));
        if (--pending == 0)
            finish();
    }

    void finish()
    {
        std::sort(zones.begin(), zones.end(), [](const ZoneState& a, const ZoneState& b) {
            return a.device.name < b.device.name;
        });
        deliver(promise, zones);
    }
};

QFuture<QList<SonosDevice>> visibleInHousehold(const QList<SonosDevice>& devices)
{
    auto asking = std::make_shared<Asking>();
    asking->devices = devices;
    asking->promise.start();
    QFuture<QList<SonosDevice>> future = asking->promise.future();
    askNext(asking);
    QTimer::singleShot(kTopologyDeadline, [asking] {
        if (!asking->settled)
            giveUp(asking);
    });
    return future;
}

} // namespace

QFuture<std::optional<QString>> zoneGroupState(const SonosDevice& from)
{
    const SonosDevice device = from;
    const auto unreachable = [name = from.name](const SpeakerError& error) {
        Log::info(QStringLiteral("topology: ") + name + QStringLiteral(" unreachable (") +
                  describe(error) + u')');
        return std::optional<QString>();
    };
    return from.zoneGroupState()
        .then([device, unreachable](const SonosResult<QString>& answer) {
            if (answer)
                return readyFuture(std::optional<QString>(*answer));
            const auto* refused = std::get_if<SonosError>(&answer.error());
            if (!refused || refused->kind != SonosError::Kind::Http || refused->status <= 0)
                return readyFuture(unreachable(answer.error()));
            return groupStateFromEvent(device, refused->status);
        })
        .unwrap();
}

QFuture<QList<SonosDevice>> visible(const QList<SonosDevice>& devices)
{
    if (devices.isEmpty())
        return readyFuture(QList<SonosDevice>());
    // A household's topology speaks for its own players only: a neighbour's household on
    // the same network is asked for its own.
    QMap<QString, QList<SonosDevice>> households;
    for (const SonosDevice& device : devices)
        households[device.household].append(device);
    if (households.size() == 1)
        return visibleInHousehold(devices);
    auto merging = std::make_shared<Merging>();
    merging->devices = devices;
    merging->pending = households.size();
    merging->promise.start();
    QFuture<QList<SonosDevice>> future = merging->promise.future();
    for (const QList<SonosDevice>& household : std::as_const(households))
        visibleInHousehold(household).then(
            [merging](const QList<SonosDevice>& kept) { merging->add(kept); });
    return future;
}

QList<SonosDevice> withoutSatellites(const QList<SonosDevice>& devices, const QString& answer)
{
    return withoutMarked(devices, invisibleUIDs(answer));
}

QList<SonosDevice> roomLeaders(const QList<SonosDevice>& devices)
{
    QList<SonosDevice> leaders;
    for (const SonosDevice& device : devices) {
        if (SonosDiscovery::neverLeadsARoom(device.model))
            continue;
        const auto same = std::find_if(leaders.begin(), leaders.end(), [&](const SonosDevice& d) {
            return d.name == device.name && d.household == device.household;
        });
        if (same == leaders.end())
            leaders.append(device);
        else if (SonosDiscovery::leadsHomeTheatre(device.model) &&
                 !SonosDiscovery::leadsHomeTheatre(same->model))
            *same = device;
    }
    return leaders;
}

QFuture<bool> leadsRoom(const SonosDevice& device)
{
    return zoneGroupState(device).then([device](const std::optional<QString>& answer) {
        return answer && !SonosDiscovery::neverLeadsARoom(device.model) &&
               !invisibleUIDs(*answer).contains(device.uid.toUpper());
    });
}

QFuture<GroupTarget> group(const SonosDevice& device, const QList<SonosDevice>& among)
{
    return zoneGroupState(device).then([device, among](const std::optional<QString>& answer) {
        if (!answer)
            return GroupTarget{device, false};
        return groupTarget(device, among, *answer);
    });
}

GroupTarget groupTarget(const SonosDevice& device, const QList<SonosDevice>& among,
                        const QString& answer)
{
    const QString text = unescape(answer);
    const std::optional<GroupInfo> info = groupInfo(device.uid, text);
    if (!info)
        return {device, false};
    const QSet<QString> invisible = invisibleUIDs(text);
    const auto visibleMembers =
        std::count_if(info->members.begin(), info->members.end(),
                      [&invisible](const QString& uid) { return !invisible.contains(uid); });
    // Compared upper-cased on both sides, like every other UID comparison of the topology.
    const QString coordinator = info->coordinator.toUpper();
    const auto leader = std::find_if(among.begin(), among.end(), [&](const SonosDevice& other) {
        return other.uid.toUpper() == coordinator;
    });
    return {leader == among.end() ? device : *leader, visibleMembers > 1};
}

QFuture<QList<ZoneState>> states(const QList<SonosDevice>& devices)
{
    auto gathering = std::make_shared<Gathering>();
    gathering->promise.start();
    gathering->pending = devices.size();
    QFuture<QList<ZoneState>> future = gathering->promise.future();
    if (devices.isEmpty()) {
        gathering->finish();
        return future;
    }
    for (const SonosDevice& device : devices)
        device.nowPlaying().then(
            [gathering, device](const SonosResult<SonosDevice::NowPlaying>& playing) {
                gathering->add(ZoneState{device, playing && playing->isLineInput(),
                                         SonosDiscovery::hasNativeOptical(device.model)});
            });
    return future;
}

QSet<QString> opticalCapable(const QList<ZoneState>& zones,
                             const std::optional<QString>& configured)
{
    QSet<QString> names;
    for (const ZoneState& zone : zones)
        if (zone.hasNativeOptical)
            names.insert(zone.device.name);
    if (names.isEmpty())
        for (const ZoneState& zone : zones)
            if (zone.isPlayingLineInput)
                names.insert(zone.device.name);
    if (configured && !configured->isEmpty() &&
        std::any_of(zones.begin(), zones.end(),
                    [&](const ZoneState& zone) { return zone.device.name == *configured; }))
        names.insert(*configured);
    return names;
}

std::optional<QString> playingOverOptical(const QList<ZoneState>& zones)
{
    std::optional<QString> playing;
    for (const ZoneState& zone : zones) {
        if (!zone.isPlayingLineInput)
            continue;
        if (playing)
            return std::nullopt;
        playing = zone.device.name;
    }
    return playing;
}

} // namespace ZoneTopology
