#pragma once

#include <QFuture>
#include <QObject>
#include <QString>

#include <chrono>
#include <deque>
#include <functional>
#include <optional>

class AirPlayBrowser;
class AudioDevice;

// Moves the computer's sound to a named output, typically an AirPlay receiver that the sound
// server does not list until it has been asked for. An output of that name is simply made
// the default; otherwise the receivers of that name are resolved through the Avahi daemon
// and the sound server's own RAOP support makes an output for one (module-raop-sink, or,
// where that is refused as on PipeWire, module-raop-discover and a wait for its output).
// Then the playing streams follow, and the caller's check decides whether the receiver was
// the right one: a wrong one gives way to the next receiver of the same name, and when that
// fails too the previous output is restored. One route at a time; main thread only, and
// nothing here waits: every step answers through the sound server's live state.
class OutputRoute : public QObject {
    Q_OBJECT
public:
    struct Outcome {
        bool ok = false;
        std::optional<QString> output; // the default output afterwards
    };
    // Answers whether the receiver of that identity (twelve hex digits) is the one meant.
    using Check = std::function<QFuture<bool>(const QString& receiverID)>;

    // How long a new output has to show and become the default.
    static constexpr std::chrono::milliseconds changeTimeout{8000};

    OutputRoute(AudioDevice& audio, AirPlayBrowser& airplay, QObject* parent = nullptr);
    ~OutputRoute() override;

    QFuture<Outcome> route(const QString& name, Check verify = {});

private:
    class Drive;
    friend class Drive;

    void startNext();

    AudioDevice& m_audio;
    AirPlayBrowser& m_airplay;
    std::deque<std::function<void()>> m_queue;
    bool m_driving = false;
    // The discovery module loaded here, once: a second would make each receiver's output twice.
    std::optional<quint32> m_discovery;
};
