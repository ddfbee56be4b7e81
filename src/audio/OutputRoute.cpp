#include "audio/OutputRoute.h"

#include "audio/AudioDevice.h"
#include "discovery/AirPlayBrowser.h"
#include "support/Log.h"
#include "support/ReadyFuture.h"

#include <QPromise>
#include <QTimer>

#include <algorithm>
#include <memory>

namespace {

QString quoted(const std::optional<QString>& name)
{
    return u'\'' + name.value_or(QStringLiteral("?")) + u'\'';
}

QString receiverKey(const AirPlayBrowser::Address& address)
{
    return address.host + u':' + QString::number(address.port);
}

// The module's argument parser has its own quoting; a name is shown, never parsed, so the
// characters that would end a quoted value are left out of it.
QString description(QString name)
{
    return name.remove(u'"').remove(u'\'').remove(u'\\');
}

// How the receiver wants to be spoken to, from its TXT record, as the sound server's own
// discovery reads it: UDP when offered, RSA when offered, ALAC when offered.
QString moduleArguments(const AirPlayBrowser::Address& address, const QString& name)
{
    const auto offers = [&](const char* key, const char* value) {
        return address.properties.value(QLatin1String(key))
            .split(u',')
            .contains(QLatin1String(value), Qt::CaseInsensitive);
    };
    return QStringLiteral("server=[%1]:%2 protocol=%3 encryption=%4 codec=%5 "
                          "sink_properties='device.description=\"%6\"'")
        .arg(address.host, QString::number(address.port),
             offers("tp", "UDP") ? QStringLiteral("UDP") : QStringLiteral("TCP"),
             offers("et", "1") ? QStringLiteral("RSA") : QStringLiteral("none"),
             offers("cn", "1") ? QStringLiteral("ALAC") : QStringLiteral("PCM"), description(name));
}

} // namespace

// One route from start to outcome. It lives until it has answered, then deletes itself.
class OutputRoute::Drive : public QObject {
public:
    Drive(OutputRoute& owner, QString name, Check verify, std::shared_ptr<QPromise<Outcome>> done)
        : QObject(&owner)
        , m_owner(owner)
        , m_audio(owner.m_audio)
        , m_name(std::move(name))
        , m_verify(std::move(verify))
        , m_done(std::move(done))
    {
    }

    void start()
    {
        const AudioDevice::State state = m_audio.state();
        m_previous = state.defaultOutputName;
        m_previousId = state.defaultOutputId;
        const bool listed = std::any_of(state.outputs.begin(), state.outputs.end(),
                                        [&](const auto& o) { return o.name == m_name; });
        if (!listed)
            return findReceivers();
        m_audio.setDefaultOutput(m_name).then(this, [this](bool accepted) {
            if (!accepted)
                return findReceivers();
            waitFor([this](const AudioDevice::State& s) -> std::optional<quint32> {
                if (s.defaultOutputName == m_name)
                    return s.defaultOutputId;
                return std::nullopt;
            }).then(this, [this](std::optional<quint32> id) {
                if (!id)
                    return findReceivers();
                m_audio.moveStreams(*id).then(this, [this](bool) {
                    Log::info(QStringLiteral("Routed audio to '") + m_name +
                              QStringLiteral("' via PulseAudio (now ") + quoted(current()) + u')');
                    finish(true);
                });
            });
        });
    }

private:
    std::optional<QString> current() const { return m_audio.state().defaultOutputName; }

    void findReceivers()
    {
        m_owner.m_airplay.identities(m_name).then(this, [this](const QStringList& ids) {
            m_candidates = ids;
            tryCandidate(0);
        });
    }

    // Receivers that cannot be resolved any more are passed over; the retry after a wrong
    // receiver is the only one the ambiguity allows.
    void tryCandidate(qsizetype index)
    {
        if (index >= m_candidates.size()) {
            if (m_tried == 0) {
                Log::info(QStringLiteral("No AirPlay receiver named '") + m_name +
                          QStringLiteral("' — leaving output on ") + quoted(m_previous));
                return finish(false);
            }
            return restore();
        }
        m_owner.m_airplay.resolve(m_candidates.at(index))
            .then(this, [this, index](const std::optional<AirPlayBrowser::Address>& address) {
                if (!address)
                    return tryCandidate(index + 1);
                ++m_tried;
                m_current.reset();
                outputFor(*address, [this, index](std::optional<quint32> sink) {
                    if (!sink)
                        return giveUp();
                    switchTo(*sink, index);
                });
            });
    }

    // The sound server's output for the receiver: one already there, else one loaded for it,
    // else what the discovery module makes.
    void outputFor(const AirPlayBrowser::Address& address,
                   std::function<void(std::optional<quint32>)> then)
    {
        const QString receiver = receiverKey(address);
        const auto shown = [receiver](const AudioDevice::State& s) -> std::optional<quint32> {
            for (const AudioDevice::Output& o : s.outputs) {
                if (o.receiver == receiver)
                    return o.id;
            }
            return std::nullopt;
        };
        // PipeWire's outputs do not say which receiver they play to: there the output is one
        // of the name that the check has not turned down yet.
        const auto named = [this, shown](const AudioDevice::State& s) -> std::optional<quint32> {
            if (const std::optional<quint32> sink = shown(s))
                return sink;
            for (const AudioDevice::Output& o : s.outputs) {
                if (o.name == m_name && o.receiver.isEmpty() &&
                    std::find(m_turnedDown.begin(), m_turnedDown.end(), o.id) == m_turnedDown.end())
                    return o.id;
            }
            return std::nullopt;
        };
        if (const std::optional<quint32> sink = shown(m_audio.state()))
            return then(sink);
        m_audio.loadModule(QStringLiteral("module-raop-sink"), moduleArguments(address, m_name))
            .then(this, [this, shown, named, then](std::optional<quint32> module) {
                m_current = module;
                if (module) {
                    waitFor(shown).then(this, then);
                    return;
                }
                if (m_owner.m_discovery) {
                    waitFor(named).then(this, then);
                    return;
                }
                // A server that has the discovery module loaded already refuses a second.
                m_audio.loadModule(QStringLiteral("module-raop-discover"), QString())
                    .then(this, [this, named, then](std::optional<quint32> discovery) {
                        m_owner.m_discovery = discovery;
                        waitFor(named).then(this, then);
                    });
            });
    }

    void switchTo(quint32 sink, qsizetype index)
    {
        m_audio.setDefaultOutput(sink).then(this, [this, sink, index](bool) {
            isDefault(sink).then(this, [this, sink, index](std::optional<quint32> changed) {
                if (!changed)
                    return giveUp();
                m_audio.moveStreams(sink).then(this,
                                               [this, index, sink](bool) { check(index, sink); });
            });
        });
    }

    void check(qsizetype index, quint32 sink)
    {
        if (!m_verify)
            return routed();
        m_verify(m_candidates.at(index)).then(this, [this, index, sink](bool right) {
            if (right)
                return routed();
            m_turnedDown.push_back(sink);
            if (m_current)
                m_wrong.push_back(*m_current);
            m_current.reset();
            if (m_tried == 1 && index + 1 < m_candidates.size()) {
                Log::info(u'\'' + m_name + QStringLiteral("' is ambiguous (") +
                          QString::number(m_candidates.size()) +
                          QStringLiteral(" receivers) — trying the next one"));
                return tryCandidate(index + 1);
            }
            restore();
        });
    }

    void routed()
    {
        Log::info(QStringLiteral("Routed audio to '") + m_name +
                  (m_tried > 1 ? QStringLiteral("' on retry (now ")
                               : QStringLiteral("' via the sound server (now ")) +
                  quoted(current()) + u')');
        unload(m_wrong);
        finish(true);
    }

    void giveUp()
    {
        Log::info(QStringLiteral("Output did not change within ") +
                  QString::number(std::chrono::duration<double>(changeTimeout).count()) +
                  QStringLiteral("s after choosing '") + m_name + u'\'');
        putBack([this] { finish(false); });
    }

    void restore()
    {
        putBack([this] {
            Log::info(QStringLiteral("Could not verify '") + m_name +
                      QStringLiteral("' — restored ") + quoted(m_previous));
            finish(false);
        });
    }

    // The previous output and its streams back, then no module of this route left behind.
    void putBack(std::function<void()> then)
    {
        std::vector<quint32> ours = m_wrong;
        if (m_current)
            ours.push_back(*m_current);
        const auto cleanUp = [this, ours, then] {
            unload(ours);
            then();
        };
        if (!m_previousId)
            return cleanUp();
        const quint32 previous = *m_previousId;
        m_audio.setDefaultOutput(previous).then(this, [this, previous, cleanUp](bool) {
            m_audio.moveStreams(previous).then(this, [this, previous, cleanUp](bool) {
                // The outcome names the default output as the live copy has it.
                isDefault(previous).then(this, [cleanUp](std::optional<quint32>) { cleanUp(); });
            });
        });
    }

    void unload(const std::vector<quint32>& modules)
    {
        for (quint32 module : modules)
            m_audio.unloadModule(module);
    }

    QFuture<std::optional<quint32>> isDefault(quint32 sink)
    {
        return waitFor([sink](const AudioDevice::State& s) -> std::optional<quint32> {
            if (s.defaultOutputId == sink)
                return sink;
            return std::nullopt;
        });
    }

    // Answers the first non-empty answer of `found` on the live state, or nothing when none
    // comes within the time-out.
    QFuture<std::optional<quint32>>
    waitFor(std::function<std::optional<quint32>(const AudioDevice::State&)> found)
    {
        if (const std::optional<quint32> now = found(m_audio.state()))
            return readyFuture(now);
        auto promise = std::make_shared<QPromise<std::optional<quint32>>>();
        promise->start();
        auto* waiting = new QObject(this);
        const auto answer = [promise, waiting](std::optional<quint32> value) {
            if (promise->future().isFinished())
                return;
            promise->addResult(value);
            promise->finish();
            waiting->deleteLater();
        };
        connect(&m_audio, &AudioDevice::changed, waiting, [this, found, answer] {
            if (const std::optional<quint32> now = found(m_audio.state()))
                answer(now);
        });
        QTimer::singleShot(changeTimeout, waiting, [answer] { answer(std::nullopt); });
        return promise->future();
    }

    void finish(bool ok)
    {
        m_done->addResult(Outcome{ok, current()});
        m_done->finish();
        deleteLater();
        m_owner.m_driving = false;
        m_owner.startNext();
    }

    OutputRoute& m_owner;
    AudioDevice& m_audio;
    const QString m_name;
    const Check m_verify;
    const std::shared_ptr<QPromise<Outcome>> m_done;
    std::optional<QString> m_previous;
    std::optional<quint32> m_previousId;
    QStringList m_candidates;
    int m_tried = 0;
    std::optional<quint32> m_current;  // the module loaded for the receiver being tried
    std::vector<quint32> m_wrong;      // modules loaded for receivers the check turned down
    std::vector<quint32> m_turnedDown; // their outputs
};

OutputRoute::OutputRoute(AudioDevice& audio, AirPlayBrowser& airplay, QObject* parent)
    : QObject(parent)
    , m_audio(audio)
    , m_airplay(airplay)
{
}

OutputRoute::~OutputRoute() = default;

QFuture<OutputRoute::Outcome> OutputRoute::route(const QString& name, Check verify)
{
    auto done = std::make_shared<QPromise<Outcome>>();
    done->start();
    m_queue.push_back([this, name, verify = std::move(verify), done] {
        (new Drive(*this, name, verify, done))->start();
    });
    if (!m_driving)
        startNext();
    return done->future();
}

void OutputRoute::startNext()
{
    if (m_driving || m_queue.empty())
        return;
    m_driving = true;
    const std::function<void()> next = std::move(m_queue.front());
    m_queue.pop_front();
    next();
}
