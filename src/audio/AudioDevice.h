#pragma once

#include <QFuture>
#include <QList>
#include <QObject>
#include <QString>
#include <QStringList>

#include <optional>

// The computer's audio outputs as the sound server sees them. A backend keeps a live copy
// of the server's state, so every read is answered from memory at once, on any thread,
// and a key press never waits on the sound server. When no server is reachable every
// read answers empty or absent.
class AudioDevice : public QObject {
    Q_OBJECT

public:
    // One output device: its identifier on the server (0xffffffff for an output its card
    // gives only under another profile), the name the user sees in the sound settings,
    // and a short transport word ("spdif", "usb", "airplay", "bluetooth", "hdmi",
    // "displayport", "thunderbolt", "aggregate", "virtual", "built-in", "other").
    struct Output {
        quint32 id = 0;
        QString name;
        QString transport;
        // For an AirPlay output: the receiver it plays to, "ADDRESS:PORT" (an IPv6 address
        // without brackets), which tells apart two receivers of one name. Empty otherwise.
        QString receiver;

        bool operator==(const Output&) const = default;
    };

    // Everything the reads below answer, taken together so that one read is consistent.
    struct State {
        bool connected = false;
        QList<Output> outputs; // in the server's order
        std::optional<QString> defaultOutputName;
        std::optional<quint32> defaultOutputId; // tells apart outputs that share a name
        QStringList processesOutputting;        // without duplicates, in the server's order
        QList<quint32> processIdsOutputting;    // the same streams' process ids, without duplicates
        QString soundServer; // "PulseAudio 16.1" or "PipeWire 0.3.65"; empty when unknown

        bool operator==(const State&) const = default;
    };

    using QObject::QObject;

    virtual State state() const = 0;

    QList<Output> outputs() const { return state().outputs; }
    std::optional<QString> defaultOutputName() const { return state().defaultOutputName; }
    QStringList processesOutputting() const { return state().processesOutputting; }
    // The output that most likely feeds an external speaker, if any.
    std::optional<QString> detectTriggerOutput() const;

    // Makes the first output of that exact name the default, switching its card's profile
    // first where it needs one. Answers true once the server has accepted the change, false
    // when no output has the name or the server refused.
    virtual QFuture<bool> setDefaultOutput(const QString& name) = 0;
    // The same for the output with that identifier, which must be a live one.
    virtual QFuture<bool> setDefaultOutput(quint32 id) = 0;
    // Moves every stream that is playing (not paused) to the output with that identifier.
    // Answers true when the server moved them all (also when none plays).
    virtual QFuture<bool> moveStreams(quint32 outputId) = 0;
    // Loads a module of the sound server ("module-raop-sink", "server=[10.0.0.5]:7000 ...")
    // and answers its index, or nothing when the server refused it or is not reachable.
    virtual QFuture<std::optional<quint32>> loadModule(const QString& name,
                                                       const QString& arguments) = 0;
    virtual QFuture<bool> unloadModule(quint32 module) = 0;

    // The guess behind detectTriggerOutput(): the default output when it is S/PDIF or USB
    // (so someone already playing through a USB interface keeps it), else the first
    // S/PDIF output, else the first USB output. When two outputs share the default's name,
    // the first of them is the one judged.
    static std::optional<QString> detectTriggerOutput(const QList<Output>& outputs,
                                                      const std::optional<QString>& defaultName);

signals:
    // The state changed. Emitted on the object's thread, at most once per turn of its
    // event loop however many changes the server reported meanwhile.
    void changed();
};
