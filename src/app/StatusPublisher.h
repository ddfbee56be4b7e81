#pragma once

#include "app/ArmedState.h"
#include "speaker/SpeakerProblem.h"

#include <QObject>
#include <QString>

#include <optional>

// What the application shows about itself at one moment: delivered to the tray now, and
// to the panel once it exists.
struct AppStatus {
    quint64 generation = 0;
    ArmedState armedState = ArmedState::Case::armed;
    QString speaker;
    bool connected = false;
    int volume = 50;
    bool muted = false;
    std::optional<SpeakerProblem> problem;
    bool saveFailed = false;
};

// Hands the application's status out, one at a time. Every request for a status is a new
// generation. A request made before the build of a status begins is answered by that build;
// a status whose build began before the newest request is dropped when it comes back, and
// built once more, so that what is shown is never older than what was asked for.
class StatusPublisher : public QObject {
    Q_OBJECT
public:
    using QObject::QObject;

    void request();
    // A status built for the generation buildRequested() named.
    void publish(AppStatus status);

    quint64 generation() const { return m_generation; }
    const std::optional<AppStatus>& last() const { return m_last; }

signals:
    // Build the status as things are now, stamp it with `generation` and publish() it.
    void buildRequested(quint64 generation);
    void published(const AppStatus& status);

private:
    void build();

    quint64 m_generation = 0;
    bool m_inFlight = false;
    std::optional<AppStatus> m_last;
};
