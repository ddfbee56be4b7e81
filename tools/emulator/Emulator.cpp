#include "emulator/Emulator.h"

#include "CoverArt.h"
#include "DescriptionXml.h"
#include "EventBodies.h"
#include "EventSubscriptions.h"
#include "FaultReply.h"
#include "Household.h"
#include "HouseholdJson.h"
#include "PlayerServer.h"
#include "SoapEnvelope.h"
#include "SsdpResponder.h"
#include "ZonePlayerActions.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QHash>
#include <QThread>

#include <algorithm>
#include <mutex>
#include <vector>

namespace emulator {

struct Emulator::Private {
    static constexpr qsizetype maxRecordedRequests = 100000;

    Emulator* q = nullptr;
    // Guards everything below that other threads may touch: the household's state, the
    // faults and the record of requests.
    mutable std::mutex mutex;
    Household household;
    QHash<QString, Fault> faults;
    QList<Request> requests;
    quint16 port = 1400;

    // Owned by the emulator's thread.
    std::vector<std::unique_ptr<PlayerServer>> servers;
    std::unique_ptr<EventSubscriptions> events;
    std::unique_ptr<SsdpResponder> ssdp;

    Reply handle(Request request);
    HttpAnswer answer(const Request& request);
    QList<SsdpAnswer> ssdpAnswers(const QString& searchTarget) const;
    PlayerServer* server(const QString& host) const;

    // Runs `f` on the emulator's thread and waits for it.
    template <typename F>
    void onOwnThread(F&& f)
    {
        if (QThread::currentThread() == q->thread())
            f();
        else
            QMetaObject::invokeMethod(q, std::forward<F>(f), Qt::BlockingQueuedConnection);
    }
    // Runs `f` on the named player's state under the lock; `fallback` for an unknown host.
    template <typename R, typename F>
    R withPlayer(const QString& host, R fallback, F&& f) const
    {
        std::lock_guard lock(mutex);
        const Player* p = household.player(host);
        return p ? f(*p) : fallback;
    }
    template <typename F>
    void changePlayer(const QString& host, F&& f)
    {
        {
            std::lock_guard lock(mutex);
            if (Player* p = household.player(host))
                f(*p);
        }
        publishChanges();
    }
    // Subscribers hear of every change, whoever made it, once the change is done.
    void publishChanges()
    {
        QMetaObject::invokeMethod(
            q, [this] { events->publishChanges(); }, Qt::QueuedConnection);
    }
};

Reply Emulator::Private::handle(Request request)
{
    std::tie(request.service, request.action) = splitSoapAction(request.header("SOAPACTION"));
    Fault fault;
    HttpAnswer normal;
    QByteArray server;
    {
        std::lock_guard lock(mutex);
        // The oldest are dropped so that a long benchmark does not grow without bound.
        if (requests.size() >= maxRecordedRequests)
            requests.remove(0, requests.size() / 2);
        requests.append(request);
        if (faultApplies(faults.value(request.host), request))
            fault = faults.value(request.host);
        if (const Player* p = household.player(request.host)) {
            server = serverHeader(*p);
            const int idleLimit = p->quirks.closesIdleConnectionsAfterMs;
            if (idleLimit > 0 && request.idleMs >= idleLimit)
                fault.kind = Fault::Kind::Close;
        }
        if (faultLetsPlayerAct(fault))
            normal = answer(request);
    }
    emit q->requestReceived(request);
    if (!request.action.isEmpty())
        publishChanges();
    return faultReply(fault, normal, server, wantsClose(request));
}

// Called with the lock held.
HttpAnswer Emulator::Private::answer(const Request& request)
{
    const Player* player = household.player(request.host);
    if (!player)
        return plainStatus(404);
    const qsizetype query = request.path.indexOf('?');
    const QByteArray path = query < 0 ? request.path : request.path.left(query);
    if (path == "/xml/device_description.xml") {
        if (request.method != "GET")
            return plainStatus(405);
        return HttpAnswer{200, "text/xml", deviceDescriptionXml(*player, household.id, port)};
    }
    if (path == "/getaa") {
        if (request.method != "GET")
            return plainStatus(405);
        return coverArt(household, *player, request.path);
    }
    if (const QString service = serviceAtEventPath(path); !service.isEmpty())
        return events->answer(request, service, player->uid.toUtf8());
    if (!serviceAtControlPath(path).isEmpty()) {
        if (request.method != "POST")
            return plainStatus(405);
        return answerControl(household, request.host, request, port);
    }
    return plainStatus(404);
}

QList<SsdpAnswer> Emulator::Private::ssdpAnswers(const QString& searchTarget) const
{
    std::lock_guard lock(mutex);
    QList<SsdpAnswer> answers;
    for (const Player& p : household.players) {
        if (p.online && p.quirks.answersSsdp && p.quirks.ssdpReplies > 0)
            answers << SsdpAnswer{p.host, ssdpAnswerDatagram(p, household.id, port, searchTarget),
                                  p.quirks.ssdpReplies};
    }
    return answers;
}

PlayerServer* Emulator::Private::server(const QString& host) const
{
    for (const auto& s : servers) {
        if (s->host() == host)
            return s.get();
    }
    return nullptr;
}

Emulator::Emulator(QObject* parent)
    : QObject(parent)
    , d(std::make_unique<Private>())
{
    d->q = this;
    d->events =
        std::make_unique<EventSubscriptions>([this](const QString& host, const QString& service) {
            std::lock_guard lock(d->mutex);
            return eventBody(d->household, host, service, d->port);
        });
}

Emulator::~Emulator()
{
    stop();
}

namespace {

// Reads the art files a household names, relative to `folder`.
std::optional<QString> readArt(Household& household, const QDir& folder)
{
    for (Player& p : household.players) {
        if (p.artFile.isEmpty())
            continue;
        QFile file(folder.filePath(p.artFile));
        if (!file.open(QIODevice::ReadOnly))
            return QStringLiteral("%1: cannot read art %2: %3")
                .arg(p.host, file.fileName(), file.errorString());
        p.art = file.readAll();
    }
    return std::nullopt;
}

} // namespace

std::optional<QString> Emulator::load(const QString& path)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        return QStringLiteral("cannot read %1: %2").arg(path, file.errorString());
    if (std::optional<QString> error = loadJson(file.readAll(), QFileInfo(path).dir()))
        return path + QStringLiteral(": ") + *error;
    return std::nullopt;
}

std::optional<QString> Emulator::loadJson(const QByteArray& json)
{
    return loadJson(json, QDir::current());
}

std::optional<QString> Emulator::loadJson(const QByteArray& json, const QDir& artFolder)
{
    Expected<Household, QString> parsed = parseHousehold(json);
    if (!parsed)
        return parsed.error();
    if (std::optional<QString> error = readArt(parsed.value(), artFolder))
        return error;
    std::lock_guard lock(d->mutex);
    d->household = std::move(parsed.value());
    return std::nullopt;
}

std::optional<QString> Emulator::start(quint16 port)
{
    stop();
    QList<std::pair<QString, QByteArray>> players;
    {
        std::lock_guard lock(d->mutex);
        if (d->household.players.isEmpty())
            return QStringLiteral("no household loaded");
        d->port = port;
        for (Player& p : d->household.players) {
            p.online = true;
            players << std::pair{p.host, serverHeader(p)};
        }
    }
    for (const auto& [host, serverHeader] : players) {
        d->servers.push_back(std::make_unique<PlayerServer>(
            host, port, serverHeader, [this](Request r) { return d->handle(std::move(r)); }));
        if (std::optional<QString> error = d->servers.back()->listen()) {
            stop();
            return error;
        }
    }
    return std::nullopt;
}

void Emulator::stop()
{
    d->ssdp.reset();
    for (const auto& s : d->servers)
        s->goOffline();
    d->servers.clear();
}

std::optional<QString> Emulator::startSsdp()
{
    auto responder = std::make_unique<SsdpResponder>(
        [this](const QString& target) { return d->ssdpAnswers(target); });
    if (std::optional<QString> error = responder->start(hosts()))
        return error;
    d->ssdp = std::move(responder);
    return std::nullopt;
}

QStringList Emulator::hosts() const
{
    std::lock_guard lock(d->mutex);
    QStringList hosts;
    for (const Player& p : d->household.players)
        hosts << p.host;
    return hosts;
}

QList<Request> Emulator::requests(const QString& host) const
{
    std::lock_guard lock(d->mutex);
    if (host.isEmpty())
        return d->requests;
    QList<Request> matching;
    for (const Request& r : d->requests) {
        if (r.host == host)
            matching << r;
    }
    return matching;
}

void Emulator::clearRequests()
{
    std::lock_guard lock(d->mutex);
    d->requests.clear();
}

void Emulator::setFault(const QString& host, const Fault& fault)
{
    std::lock_guard lock(d->mutex);
    d->faults.insert(host, fault);
}

void Emulator::clearFaults()
{
    std::lock_guard lock(d->mutex);
    d->faults.clear();
}

void Emulator::setOnline(const QString& host, bool online)
{
    d->changePlayer(host, [online](Player& p) { p.online = online; });
    d->onOwnThread([this, host, online] {
        PlayerServer* server = d->server(host);
        if (!server)
            return;
        if (!online) {
            server->goOffline();
            d->events->forget(host);
        } else if (std::optional<QString> error = server->listen())
            qWarning("emulator: %s", qPrintable(*error));
    });
}

QList<EventMessage> Emulator::events(const QString& host) const
{
    QList<EventMessage> messages = d->events->delivered();
    if (!host.isEmpty())
        messages.removeIf([&](const EventMessage& m) { return m.host != host; });
    return messages;
}

bool Emulator::isOnline(const QString& host) const
{
    return d->withPlayer(host, false, [](const Player& p) { return p.online; });
}

int Emulator::volume(const QString& host) const
{
    return d->withPlayer(host, -1, [](const Player& p) { return p.volume; });
}

void Emulator::setVolume(const QString& host, int volume)
{
    d->changePlayer(host, [volume](Player& p) { p.volume = std::clamp(volume, 0, 100); });
}

bool Emulator::muted(const QString& host) const
{
    return d->withPlayer(host, false, [](const Player& p) { return p.muted; });
}

void Emulator::setMuted(const QString& host, bool muted)
{
    d->changePlayer(host, [muted](Player& p) { p.muted = muted; });
}

std::optional<bool> Emulator::eq(const QString& host, const QString& type) const
{
    return d->withPlayer(host, std::optional<bool>(), [&type](const Player& p) {
        return p.eq.contains(type) ? std::optional<bool>(p.eq.value(type) != 0) : std::nullopt;
    });
}

void Emulator::setEq(const QString& host, const QString& type, bool on)
{
    d->changePlayer(host, [&type, on](Player& p) {
        if (p.eq.contains(type))
            p.eq[type] = on ? 1 : 0;
    });
}

QString Emulator::transportState(const QString& host) const
{
    return d->withPlayer(host, QString(), [](const Player& p) { return p.transportState; });
}

void Emulator::setTransportState(const QString& host, const QString& state)
{
    d->changePlayer(host, [&state](Player& p) { p.transportState = state; });
}

Track Emulator::track(const QString& host) const
{
    return d->withPlayer(host, Track(), [](const Player& p) { return p.track; });
}

void Emulator::setTrack(const QString& host, const Track& track)
{
    d->changePlayer(host, [&track](Player& p) { p.track = track; });
}

void Emulator::setArt(const QString& host, const QByteArray& image)
{
    d->changePlayer(host, [&image](Player& p) { p.art = image; });
}

PlayerQuirks Emulator::quirks(const QString& host) const
{
    return d->withPlayer(host, PlayerQuirks(), [](const Player& p) { return p.quirks; });
}

void Emulator::setQuirks(const QString& host, const PlayerQuirks& quirks)
{
    d->changePlayer(host, [&quirks](Player& p) { p.quirks = quirks; });
}

QString Emulator::uid(const QString& host) const
{
    return d->withPlayer(host, QString(), [](const Player& p) { return p.uid; });
}

QString Emulator::roomName(const QString& host) const
{
    return d->withPlayer(host, QString(), [](const Player& p) { return p.room; });
}

QString Emulator::modelName(const QString& host) const
{
    return d->withPlayer(host, QString(), [](const Player& p) { return p.modelName; });
}

QString Emulator::householdId() const
{
    std::lock_guard lock(d->mutex);
    return d->household.id;
}

quint16 Emulator::port() const
{
    std::lock_guard lock(d->mutex);
    return d->port;
}

} // namespace emulator
