#pragma once

#include "audio/AudioDevice.h"
#include "audio/CardProfiles.h"
#include "support/LockedBox.h"

#include <QPromise>

#include <atomic>
#include <functional>
#include <list>
#include <map>
#include <memory>

struct pa_card_info;
struct pa_context;
struct pa_sink_info;
struct pa_sink_input_info;
struct pa_server_info;
struct pa_threaded_mainloop;
struct pa_time_event;
struct pa_mainloop_api;
struct pa_operation;

// The audio outputs of a PulseAudio server (or PipeWire's PulseAudio service). A thread
// of libpulse's own follows the server's sinks, cards, default sink and playing streams
// through its change subscription and publishes a copy after every change; the reads answer
// that copy. After the sinks come the S/PDIF outputs that a card has only under a profile
// it is not running (id 0xffffffff: no sink yet), named as their sinks will be; making
// one the default switches the card to that profile first. When the server is missing or goes away,
// the copy is empty and the backend keeps reconnecting (after 0.1 s, doubling up to 2 s) until it
// is back.
class PulseAudio final : public AudioDevice {
    Q_OBJECT

public:
    // `server` as libpulse spells it ("unix:/run/user/1000/pulse/native"); empty means
    // the usual one ($PULSE_SERVER, then the user's own).
    explicit PulseAudio(const QString& server = {}, QObject* parent = nullptr);
    ~PulseAudio() override;

    State state() const override;
    QFuture<bool> setDefaultOutput(const QString& name) override;
    QFuture<bool> setDefaultOutput(quint32 id) override;
    QFuture<bool> moveStreams(quint32 outputId) override;
    QFuture<std::optional<quint32>> loadModule(const QString& name,
                                               const QString& arguments) override;
    QFuture<bool> unloadModule(quint32 module) override;

private:
    struct Sink {
        QByteArray serverName; // the sink's name on the server, which the default names
        Output output;
        quint32 card = 0xffffffff;
        QString mapping; // the card's output mapping it plays through
    };
    struct Stream {
        QString application;
        quint32 processId = 0; // 0: the stream does not say
        bool corked = false;
    };
    struct PendingSwitch {
        PulseAudio* owner = nullptr;
        QPromise<bool> promise;
        // While a card changes profile: the sink to make the default once it shows, and
        // when to give up waiting for it.
        std::optional<quint32> card;
        ProfileOutput target;
        pa_time_event* deadline = nullptr;
    };

    // One or more server operations answered together: `finish` runs once, on libpulse's
    // thread, when the last of them has answered or the connection is lost.
    struct Request {
        PulseAudio* owner = nullptr;
        int remaining = 0;
        bool ok = true;
        quint32 index = 0xffffffff;
        std::function<void(bool ok, quint32 index)> finish;
    };

    // Runs `start` with the lock held and the context ready; it answers how many operations
    // it began. With none begun the request is answered at once with its `ok`, which `start`
    // clears when it could not begin what it had to.
    void request(std::function<void(bool, quint32)> finish,
                 const std::function<int(Request*)>& start);
    // A request whose answer is whether every operation `start` began succeeded.
    QFuture<bool> requestSucceeds(const std::function<int(Request*)>& start);
    // How many operations `operation` adds to `r`: one, or none when it could not be sent,
    // which fails `r`. The operation itself is released: its callback carries the answer.
    static int sent(pa_operation* operation, Request* r);
    void answer(Request* request, bool ok, quint32 index);
    static void successCallback(pa_context*, int success, void* request);
    static void indexCallback(pa_context*, uint32_t index, void* request);

    // Everything below runs on libpulse's thread, or with its lock held.
    void connectToServer();
    void dropContext();
    void startTimer(int delayMs);
    void forgetServer();
    void onContextState();
    void onReady();
    void requestDone(bool initial);
    void storeSink(const pa_sink_info& info);
    void storeStream(const pa_sink_input_info& info);
    void storeServer(const pa_server_info& info);
    void storeCard(const pa_card_info& info);
    void fetchSink(quint32 index);
    void fetchCard(quint32 index);
    void switchCardProfile(quint32 card, const ProfileOutput& target,
                           std::unique_ptr<PendingSwitch>& pending);
    void defaultWhenShown(PendingSwitch* pending, bool confirmed);
    bool makeDefault(const QByteArray& sinkName, PendingSwitch* pending);
    void fetchStream(quint32 index);
    void fetchServer(bool initial);
    void onEvent(int type, quint32 index);
    void finishSwitch(PendingSwitch* pending, bool accepted);
    void failPendingSwitches();
    void publish();

    static void contextStateCallback(pa_context* context, void* self);
    // libpulse answers a list query with one call per entry, then one with `eol` set.
    template <typename Info, void (PulseAudio::*store)(const Info&), bool initial>
    static void entryCallback(pa_context*, const Info* info, int eol, void* self)
    {
        auto* audio = static_cast<PulseAudio*>(self);
        if (eol)
            audio->requestDone(initial);
        else
            (audio->*store)(*info);
    }
    static void timerCallback(pa_mainloop_api* api, pa_time_event* event, const struct timeval* tv,
                              void* self);

    QByteArray m_server;
    pa_threaded_mainloop* m_mainloop = nullptr;
    pa_mainloop_api* m_api = nullptr;
    pa_context* m_context = nullptr;
    pa_time_event* m_timer = nullptr;
    int m_backoffMs = 0;
    int m_initialPending = 0;
    std::map<quint32, Sink> m_sinks;
    std::map<quint32, Stream> m_streams;
    std::map<quint32, QList<ProfileOutput>> m_cards; // each card's S/PDIF outputs not active
    QByteArray m_defaultSinkName;
    QString m_soundServer;
    std::list<std::unique_ptr<PendingSwitch>> m_switches;
    std::list<std::unique_ptr<Request>> m_requests;
    State m_published;

    // Shared between libpulse's thread and everyone else.
    LockedBox<State> m_state;
    std::atomic<bool> m_notifyQueued = false;

    // The owner's thread only.
    State m_lastAnnounced;
};
