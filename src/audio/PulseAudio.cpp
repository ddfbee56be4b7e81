#include "audio/PulseAudio.h"

#include "audio/SinkTransport.h"

#include <QMetaObject>

#include <algorithm>
#include <pulse/pulseaudio.h>
#include <vector>

namespace {

constexpr int firstRetryMs = 100;
constexpr int longestRetryMs = 2000;
// How long a card that changed profile has to bring up its new sink.
constexpr int profileSinkWaitMs = 5000;

QString propertyOf(const pa_proplist* properties, const char* key)
{
    const char* value = pa_proplist_gets(properties, key);
    return value ? QString::fromUtf8(value) : QString();
}

SinkFacts factsOf(const pa_sink_info& info)
{
    SinkFacts facts;
    for (const char* key : {"device.api", "device.bus", "device.class", "device.profile.name",
                            "alsa.name", "node.virtual"}) {
        const QString value = propertyOf(info.proplist, key);
        if (!value.isNull())
            facts.properties.insert(QString::fromLatin1(key), value);
    }
    facts.driver = QString::fromUtf8(info.driver ? info.driver : "");
    if (info.active_port && info.active_port->name)
        facts.activePort = QString::fromUtf8(info.active_port->name);
    return facts;
}

// PulseAudio's RAOP sink names its receiver "[10.0.0.5]:7000" in device.string; PipeWire's
// gives the address and the port apart.
QString receiverOf(const pa_sink_info& info)
{
    const QString address = propertyOf(info.proplist, "raop.ip");
    if (!address.isEmpty())
        return address + u':' + propertyOf(info.proplist, "raop.port");
    QString server = propertyOf(info.proplist, PA_PROP_DEVICE_STRING);
    return server.remove(u'[').remove(u']');
}

// A stream is known by the application's identifier, else by the program's file name.
QString applicationOf(const pa_sink_input_info& info)
{
    const QString id = propertyOf(info.proplist, PA_PROP_APPLICATION_ID);
    return id.isEmpty() ? propertyOf(info.proplist, PA_PROP_APPLICATION_PROCESS_BINARY) : id;
}

// The process that opened the stream, which a media player's bus name can be matched with.
quint32 processIdOf(const pa_sink_input_info& info)
{
    return propertyOf(info.proplist, PA_PROP_APPLICATION_PROCESS_ID).toUInt();
}

} // namespace

PulseAudio::PulseAudio(const QString& server, QObject* parent)
    : AudioDevice(parent)
    , m_server(server.toUtf8())
{
    m_mainloop = pa_threaded_mainloop_new();
    m_api = pa_threaded_mainloop_get_api(m_mainloop);
    pa_threaded_mainloop_set_name(m_mainloop, "pulse");
    pa_threaded_mainloop_lock(m_mainloop);
    connectToServer();
    pa_threaded_mainloop_unlock(m_mainloop);
    pa_threaded_mainloop_start(m_mainloop);
}

PulseAudio::~PulseAudio()
{
    pa_threaded_mainloop_lock(m_mainloop);
    dropContext();
    failPendingSwitches();
    if (m_timer)
        m_api->time_free(m_timer);
    pa_threaded_mainloop_unlock(m_mainloop);
    pa_threaded_mainloop_stop(m_mainloop);
    pa_threaded_mainloop_free(m_mainloop);
}

AudioDevice::State PulseAudio::state() const
{
    return m_state.get();
}

QFuture<bool> PulseAudio::setDefaultOutput(const QString& name)
{
    auto pending = std::make_unique<PendingSwitch>();
    pending->owner = this;
    QFuture<bool> future = pending->promise.future();
    pending->promise.start();

    pa_threaded_mainloop_lock(m_mainloop);
    const bool ready = m_context && pa_context_get_state(m_context) == PA_CONTEXT_READY;
    const auto sink = std::find_if(m_sinks.begin(), m_sinks.end(), [&](const auto& entry) {
        return entry.second.output.name == name;
    });
    if (ready && sink != m_sinks.end()) {
        if (makeDefault(sink->second.serverName, pending.get()))
            m_switches.push_back(std::move(pending));
    } else if (ready) {
        for (const auto& [index, inactiveOutputs] : m_cards) {
            const auto target = std::find_if(inactiveOutputs.begin(), inactiveOutputs.end(),
                                             [&](const auto& o) { return o.name == name; });
            if (target != inactiveOutputs.end()) {
                switchCardProfile(index, *target, pending);
                break;
            }
        }
    }
    if (pending) {
        pending->promise.addResult(false);
        pending->promise.finish();
    }
    pa_threaded_mainloop_unlock(m_mainloop);
    return future;
}

bool PulseAudio::makeDefault(const QByteArray& sinkName, PendingSwitch* pending)
{
    const auto done = [](pa_context*, int success, void* data) {
        auto* p = static_cast<PendingSwitch*>(data);
        p->owner->finishSwitch(p, success != 0);
    };
    pa_operation* operation =
        pa_context_set_default_sink(m_context, sinkName.constData(), done, pending);
    if (!operation)
        return false;
    pa_operation_unref(operation);
    return true;
}

// The card's new sink may show before or after the server confirms the profile (PipeWire
// makes it a little later); whichever comes last makes it the default. The wait for it
// starts with the confirmation, which the server always sends.
void PulseAudio::switchCardProfile(quint32 card, const ProfileOutput& target,
                                   std::unique_ptr<PendingSwitch>& pending)
{
    const auto done = [](pa_context*, int success, void* data) {
        auto* p = static_cast<PendingSwitch*>(data);
        if (success)
            p->owner->defaultWhenShown(p, true);
        else
            p->owner->finishSwitch(p, false);
    };
    const QByteArray profile = target.profile.toUtf8();
    pa_operation* operation = pa_context_set_card_profile_by_index(
        m_context, card, profile.constData(), done, pending.get());
    if (!operation)
        return;
    pa_operation_unref(operation);
    pending->card = card;
    pending->target = target;
    m_switches.push_back(std::move(pending));
}

void PulseAudio::defaultWhenShown(PendingSwitch* pending, bool confirmed)
{
    if (!pending->card)
        return;
    const auto shown = std::find_if(m_sinks.begin(), m_sinks.end(), [&](const auto& entry) {
        const Sink& sink = entry.second;
        return sink.card == *pending->card && (sink.mapping == pending->target.mapping ||
                                               sink.output.name == pending->target.name);
    });
    if (shown == m_sinks.end()) {
        if (confirmed) {
            const auto giveUp = [](pa_mainloop_api*, pa_time_event*, const timeval*, void* data) {
                auto* p = static_cast<PendingSwitch*>(data);
                p->owner->finishSwitch(p, false);
            };
            timeval when{};
            pa_timeval_add(pa_gettimeofday(&when), pa_usec_t(profileSinkWaitMs) * PA_USEC_PER_MSEC);
            pending->deadline = m_api->time_new(m_api, &when, giveUp, pending);
        }
        return;
    }
    pending->card.reset();
    if (!makeDefault(shown->second.serverName, pending))
        finishSwitch(pending, false);
}

QFuture<bool> PulseAudio::setDefaultOutput(quint32 id)
{
    return requestSucceeds([this, id](Request* r) {
        const auto sink = m_sinks.find(id);
        if (sink == m_sinks.end())
            return sent(nullptr, r);
        return sent(pa_context_set_default_sink(m_context, sink->second.serverName.constData(),
                                                successCallback, r),
                    r);
    });
}

QFuture<bool> PulseAudio::moveStreams(quint32 outputId)
{
    return requestSucceeds([this, outputId](Request* r) {
        int begun = 0;
        for (const auto& [index, stream] : m_streams)
            if (!stream.corked)
                begun += sent(pa_context_move_sink_input_by_index(m_context, index, outputId,
                                                                  successCallback, r),
                              r);
        return begun;
    });
}

QFuture<std::optional<quint32>> PulseAudio::loadModule(const QString& name,
                                                       const QString& arguments)
{
    auto promise = std::make_shared<QPromise<std::optional<quint32>>>();
    promise->start();
    request(
        [promise](bool ok, quint32 index) {
            promise->addResult(ok ? std::optional<quint32>(index) : std::nullopt);
            promise->finish();
        },
        [this, name = name.toUtf8(), arguments = arguments.toUtf8()](Request* r) {
            return sent(pa_context_load_module(m_context, name.constData(), arguments.constData(),
                                               indexCallback, r),
                        r);
        });
    return promise->future();
}

QFuture<bool> PulseAudio::unloadModule(quint32 module)
{
    return requestSucceeds([this, module](Request* r) {
        return sent(pa_context_unload_module(m_context, module, successCallback, r), r);
    });
}

QFuture<bool> PulseAudio::requestSucceeds(const std::function<int(Request*)>& start)
{
    auto promise = std::make_shared<QPromise<bool>>();
    promise->start();
    request(
        [promise](bool ok, quint32) {
            promise->addResult(ok);
            promise->finish();
        },
        start);
    return promise->future();
}

int PulseAudio::sent(pa_operation* operation, Request* r)
{
    if (!operation) {
        r->ok = false;
        return 0;
    }
    pa_operation_unref(operation);
    return 1;
}

void PulseAudio::request(std::function<void(bool, quint32)> finish,
                         const std::function<int(Request*)>& start)
{
    pa_threaded_mainloop_lock(m_mainloop);
    if (!m_context || pa_context_get_state(m_context) != PA_CONTEXT_READY) {
        finish(false, PA_INVALID_INDEX);
        pa_threaded_mainloop_unlock(m_mainloop);
        return;
    }
    auto r = std::make_unique<Request>();
    r->owner = this;
    r->finish = std::move(finish);
    r->remaining = start(r.get());
    if (r->remaining == 0)
        r->finish(r->ok, r->index);
    else
        m_requests.push_back(std::move(r));
    pa_threaded_mainloop_unlock(m_mainloop);
}

void PulseAudio::successCallback(pa_context*, int success, void* data)
{
    auto* r = static_cast<Request*>(data);
    r->owner->answer(r, success != 0, r->index);
}

void PulseAudio::indexCallback(pa_context*, uint32_t index, void* data)
{
    auto* r = static_cast<Request*>(data);
    r->owner->answer(r, index != PA_INVALID_INDEX, index);
}

void PulseAudio::answer(Request* request, bool ok, quint32 index)
{
    request->ok = request->ok && ok;
    request->index = index;
    if (--request->remaining > 0)
        return;
    const auto it = std::find_if(m_requests.begin(), m_requests.end(),
                                 [&](const auto& r) { return r.get() == request; });
    if (it == m_requests.end())
        return;
    (*it)->finish((*it)->ok, (*it)->index);
    m_requests.erase(it);
}

void PulseAudio::connectToServer()
{
    m_context = pa_context_new(m_api, "Velotide");
    pa_context_set_state_callback(m_context, contextStateCallback, this);
    const char* server = m_server.isEmpty() ? nullptr : m_server.constData();
    if (pa_context_connect(m_context, server, PA_CONTEXT_NOAUTOSPAWN, nullptr) < 0)
        startTimer(0);
}

void PulseAudio::dropContext()
{
    if (!m_context)
        return;
    pa_context_set_state_callback(m_context, nullptr, nullptr);
    pa_context_set_subscribe_callback(m_context, nullptr, nullptr);
    pa_context_disconnect(m_context);
    pa_context_unref(m_context);
    m_context = nullptr;
}

void PulseAudio::startTimer(int delayMs)
{
    timeval when{};
    pa_timeval_add(pa_gettimeofday(&when), pa_usec_t(delayMs) * PA_USEC_PER_MSEC);
    if (m_timer)
        m_api->time_restart(m_timer, &when);
    else
        m_timer = m_api->time_new(m_api, &when, timerCallback, this);
}

// A failed context is dropped on the next turn of the loop (never inside its own
// callback), which also answers any switch still waiting on it; the next attempt to
// connect follows after the back-off.
void PulseAudio::timerCallback(pa_mainloop_api*, pa_time_event*, const timeval*, void* data)
{
    auto* self = static_cast<PulseAudio*>(data);
    if (self->m_context) {
        self->dropContext();
        self->failPendingSwitches();
        self->m_backoffMs = std::clamp(self->m_backoffMs * 2, firstRetryMs, longestRetryMs);
        self->startTimer(self->m_backoffMs);
        return;
    }
    self->connectToServer();
}

void PulseAudio::contextStateCallback(pa_context*, void* data)
{
    static_cast<PulseAudio*>(data)->onContextState();
}

void PulseAudio::onContextState()
{
    switch (pa_context_get_state(m_context)) {
    case PA_CONTEXT_READY:
        onReady();
        break;
    case PA_CONTEXT_FAILED:
    case PA_CONTEXT_TERMINATED:
        forgetServer();
        startTimer(0);
        break;
    default:
        break;
    }
}

void PulseAudio::forgetServer()
{
    m_sinks.clear();
    m_streams.clear();
    m_cards.clear();
    m_defaultSinkName.clear();
    m_soundServer.clear();
    m_initialPending = 0;
    publish();
}

void PulseAudio::onReady()
{
    m_backoffMs = 0;
    const auto onEventCallback = [](pa_context*, pa_subscription_event_type_t type, uint32_t index,
                                    void* self) {
        static_cast<PulseAudio*>(self)->onEvent(type, index);
    };
    pa_context_set_subscribe_callback(m_context, onEventCallback, this);
    const auto mask =
        pa_subscription_mask_t(PA_SUBSCRIPTION_MASK_SINK | PA_SUBSCRIPTION_MASK_SINK_INPUT |
                               PA_SUBSCRIPTION_MASK_SERVER | PA_SUBSCRIPTION_MASK_CARD);
    pa_operation_unref(pa_context_subscribe(m_context, mask, nullptr, nullptr));

    // The first copy is published only once all four answers are in, so nobody sees a
    // list of sinks without its default in between.
    m_initialPending = 4;
    fetchServer(true);
    pa_operation_unref(pa_context_get_sink_info_list(
        m_context, entryCallback<pa_sink_info, &PulseAudio::storeSink, true>, this));
    pa_operation_unref(pa_context_get_sink_input_info_list(
        m_context, entryCallback<pa_sink_input_info, &PulseAudio::storeStream, true>, this));
    pa_operation_unref(pa_context_get_card_info_list(
        m_context, entryCallback<pa_card_info, &PulseAudio::storeCard, true>, this));
}

void PulseAudio::requestDone(bool initial)
{
    if (initial && --m_initialPending > 0)
        return;
    if (m_initialPending == 0)
        publish();
}

void PulseAudio::onEvent(int type, quint32 index)
{
    const int facility = type & PA_SUBSCRIPTION_EVENT_FACILITY_MASK;
    const bool removed = (type & PA_SUBSCRIPTION_EVENT_TYPE_MASK) == PA_SUBSCRIPTION_EVENT_REMOVE;
    switch (facility) {
    case PA_SUBSCRIPTION_EVENT_SINK:
        if (removed) {
            m_sinks.erase(index);
            requestDone(false);
        } else {
            fetchSink(index);
        }
        break;
    case PA_SUBSCRIPTION_EVENT_SINK_INPUT:
        if (removed) {
            m_streams.erase(index);
            requestDone(false);
        } else {
            fetchStream(index);
        }
        break;
    case PA_SUBSCRIPTION_EVENT_CARD:
        if (removed) {
            m_cards.erase(index);
            requestDone(false);
        } else {
            fetchCard(index);
        }
        break;
    case PA_SUBSCRIPTION_EVENT_SERVER:
        fetchServer(false);
        break;
    default:
        break;
    }
}

void PulseAudio::fetchSink(quint32 index)
{
    pa_operation_unref(pa_context_get_sink_info_by_index(
        m_context, index, entryCallback<pa_sink_info, &PulseAudio::storeSink, false>, this));
}

void PulseAudio::fetchStream(quint32 index)
{
    pa_operation_unref(pa_context_get_sink_input_info(
        m_context, index, entryCallback<pa_sink_input_info, &PulseAudio::storeStream, false>,
        this));
}

void PulseAudio::fetchCard(quint32 index)
{
    pa_operation_unref(pa_context_get_card_info_by_index(
        m_context, index, entryCallback<pa_card_info, &PulseAudio::storeCard, false>, this));
}

void PulseAudio::fetchServer(bool initial)
{
    const auto onServer = [](pa_context*, const pa_server_info* info, void* data) {
        auto* self = static_cast<PulseAudio*>(data);
        if (info)
            self->storeServer(*info);
        self->requestDone(true);
    };
    const auto onServerChange = [](pa_context*, const pa_server_info* info, void* data) {
        auto* self = static_cast<PulseAudio*>(data);
        if (info)
            self->storeServer(*info);
        self->requestDone(false);
    };
    pa_operation_unref(
        pa_context_get_server_info(m_context, initial ? +onServer : +onServerChange, this));
}

void PulseAudio::storeSink(const pa_sink_info& info)
{
    Sink& sink = m_sinks[info.index];
    sink.serverName = QByteArray(info.name ? info.name : "");
    const QString transport = transportWord(factsOf(info));
    sink.output =
        Output{info.index, QString::fromUtf8(info.description ? info.description : ""), transport,
               transport == QLatin1StringView("airplay") ? receiverOf(info) : QString()};
    sink.card = info.card;
    sink.mapping = propertyOf(info.proplist, "device.profile.name");
    std::vector<PendingSwitch*> waiting;
    for (const auto& pending : m_switches) {
        if (pending->card == info.card)
            waiting.push_back(pending.get());
    }
    for (PendingSwitch* pending : waiting)
        defaultWhenShown(pending, false);
}

void PulseAudio::storeCard(const pa_card_info& info)
{
    CardFacts facts;
    for (const char* key : {"device.description", "device.api", "device.bus", "device.class"}) {
        const QString value = propertyOf(info.proplist, key);
        if (!value.isNull())
            facts.properties.insert(QString::fromLatin1(key), value);
    }
    if (info.active_profile2 && info.active_profile2->name)
        facts.activeProfile = QString::fromUtf8(info.active_profile2->name);
    for (quint32 i = 0; i < info.n_profiles && info.profiles2; ++i) {
        const pa_card_profile_info2& p = *info.profiles2[i];
        facts.profiles.append({QString::fromUtf8(p.name ? p.name : ""),
                               QString::fromUtf8(p.description ? p.description : ""), p.n_sinks,
                               p.priority, p.available != 0});
    }
    m_cards[info.index] = inactiveSpdifOutputs(facts);
}

void PulseAudio::storeStream(const pa_sink_input_info& info)
{
    m_streams[info.index] = Stream{applicationOf(info), processIdOf(info), info.corked != 0};
}

void PulseAudio::storeServer(const pa_server_info& info)
{
    m_defaultSinkName = QByteArray(info.default_sink_name ? info.default_sink_name : "");
    // PipeWire's PulseAudio service names itself "PulseAudio (on PipeWire 0.3.65)".
    const QString name = QString::fromUtf8(info.server_name ? info.server_name : "");
    const qsizetype pipeWire = name.indexOf(QStringLiteral("PipeWire "));
    m_soundServer = pipeWire >= 0
                        ? name.mid(pipeWire).remove(u')')
                        : QStringLiteral("PulseAudio ") +
                              QString::fromUtf8(info.server_version ? info.server_version : "?");
}

void PulseAudio::finishSwitch(PendingSwitch* pending, bool accepted)
{
    const auto it = std::find_if(m_switches.begin(), m_switches.end(),
                                 [&](const auto& p) { return p.get() == pending; });
    if (it == m_switches.end())
        return;
    if ((*it)->deadline)
        m_api->time_free((*it)->deadline);
    (*it)->promise.addResult(accepted);
    (*it)->promise.finish();
    m_switches.erase(it);
}

void PulseAudio::failPendingSwitches()
{
    for (auto& pending : m_switches) {
        if (pending->deadline)
            m_api->time_free(pending->deadline);
        pending->promise.addResult(false);
        pending->promise.finish();
    }
    m_switches.clear();
    // A lost connection never answers what was asked of it.
    for (auto& r : m_requests)
        r->finish(false, PA_INVALID_INDEX);
    m_requests.clear();
}

void PulseAudio::publish()
{
    State next;
    next.connected = m_context && pa_context_get_state(m_context) == PA_CONTEXT_READY;
    next.soundServer = m_soundServer;
    for (const auto& [index, sink] : m_sinks) {
        next.outputs.append(sink.output);
        if (!next.defaultOutputName && !m_defaultSinkName.isEmpty() &&
            sink.serverName == m_defaultSinkName) {
            next.defaultOutputName = sink.output.name;
            next.defaultOutputId = index;
        }
    }
    for (const auto& [index, inactiveOutputs] : m_cards) {
        for (const ProfileOutput& inactive : inactiveOutputs) {
            const bool shown =
                std::any_of(next.outputs.begin(), next.outputs.end(),
                            [&](const Output& o) { return o.name == inactive.name; });
            if (!shown)
                next.outputs.append(
                    Output{PA_INVALID_INDEX, inactive.name, QStringLiteral("spdif"), {}});
        }
    }
    for (const auto& [index, stream] : m_streams) {
        if (!stream.corked && !stream.application.isEmpty() &&
            !next.processesOutputting.contains(stream.application))
            next.processesOutputting.append(stream.application);
        if (!stream.corked && stream.processId != 0 &&
            !next.processIdsOutputting.contains(stream.processId))
            next.processIdsOutputting.append(stream.processId);
    }
    if (next == m_published)
        return;
    m_published = next;
    m_state.set(std::move(next));

    // However many changes arrive before the owner's thread gets round to it, it hears of
    // them once, and only when the state it last heard of differs.
    if (m_notifyQueued.exchange(true))
        return;
    QMetaObject::invokeMethod(
        this,
        [this] {
            m_notifyQueued = false;
            State now = state();
            if (now == m_lastAnnounced)
                return;
            m_lastAnnounced = std::move(now);
            emit changed();
        },
        Qt::QueuedConnection);
}
