#pragma once

#include "sonos/SonosDevice.h"

#include <QFuture>
#include <QObject>
#include <QString>
#include <QTimer>

#include <chrono>
#include <memory>
#include <optional>
#include <vector>

class EventSubscription;
class SpeakerController;

// Follows the chosen speaker through its event messages, so that a change made elsewhere
// (the phone app, a TV remote through the soundbar) reaches the controller at once instead
// of at its next check: the player's RenderingControl, AVTransport and ZoneGroupTopology, and
// the coordinator's GroupRenderingControl while grouped. Subscribes afresh whenever the
// controller connects to another player or group, and when told the network changed or the
// computer woke. When no initial message comes (a firewall in the way of the callback), it
// says so once and lets the controller's regular check do the work alone. Lives on the
// controller's thread.
class SpeakerEvents : public QObject {
    Q_OBJECT
public:
    // How long the initial messages may take before events are taken to be blocked.
    static constexpr std::chrono::milliseconds initialWait{3000};

    explicit SpeakerEvents(SpeakerController& controller, QObject* parent = nullptr);
    ~SpeakerEvents() override;

    // Subscribes afresh to what the controller is connected to.
    void resubscribe(const QString& reason);
    // Unsubscribes from everything; finishes once the players answered.
    QFuture<void> stop();
    // Whether an initial message arrived since the last subscribing.
    bool isFollowing() const { return m_following; }

signals:
    // The transport state or the current track changed.
    void playbackChanged();

private:
    struct Target {
        std::optional<SonosDevice> device;
        std::optional<SonosDevice> coordinator;
        bool operator==(const Target&) const = default;
    };

    void targetMayHaveChanged();
    void subscribe();
    void add(const SonosDevice& player, const QString& path,
             void (SpeakerEvents::*read)(const QByteArray&));
    void readRendering(const QByteArray& body);
    void readGroupRendering(const QByteArray& body);
    void readTransport(const QByteArray& body);
    void readTopology(const QByteArray& body);
    void arrived();

    SpeakerController& m_controller;
    Target m_target;
    std::vector<std::unique_ptr<EventSubscription>> m_subscriptions;
    QTimer m_initial;
    bool m_following = false;
    bool m_toldBlocked = false;
    std::optional<QString> m_transportState;
    std::optional<QString> m_track;
    std::optional<QString> m_group; // this player's group, as the topology last said
};
