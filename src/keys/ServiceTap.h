#pragma once

#include "keys/EventTap.h"
#include "keyservice/Protocol.h"

#include <QLocalSocket>
#include <QObject>

// The tap as a client of the key service velotide-keyd. The service grabs the keyboards and
// decides each volume key on its side from the armed state this client last pushed, so no
// key waits on a round trip; swallowed key-downs come back as reports. Everything here is
// non-blocking and runs on the main thread.
//
// "Tap enabled" means connected, accepted, and the service holds at least one keyboard.
// Input access means the service is installed and accepts this session. A lost connection
// is the tap being disabled: it is reconnected at once, and otherwise by the watchdog.
class ServiceTap final : public EventTap {
public:
    ServiceTap(Callbacks callbacks, QString socketPath);
    ~ServiceTap() override;

    static QString defaultPath();
    // Whether a service listens at `path` that this user may connect to; the service itself
    // decides whether it accepts this session.
    static bool isReachable(const QString& path);

    bool install() override;
    void teardown() override;
    void check() override;
    void reevaluate() override;
    bool setPointerButtonHandler(std::function<void()> onPress) override;
    bool isTrusted() const override;
    bool isEnabled() const override;
    QString backendName() const override { return QStringLiteral("key service"); }

protected:
    bool hasTap() const override { return m_socket != nullptr; }
    bool isAlive() const override;
    bool reenable() override;

private:
    enum class Refusal { none, notActiveSession, busy, otherVersion };

    struct DeleteLater {
        void operator()(QLocalSocket* socket) const;
    };

    bool connectSocket();
    void dropSocket();
    void readRecords();
    void connectionLost();
    void handle(const keyd::ServiceMessage& message);
    void handleHello(const keyd::Hello& hello);
    void handleHealth(const keyd::Health& health);
    void refuse(Refusal refusal, const QString& logLine);
    void send(const keyd::Record& record);

    QString m_path;
    QObject m_context; // receives queued work; its end cancels what is still queued
    std::unique_ptr<QLocalSocket, DeleteLater> m_socket;
    keyd::RecordBuffer m_buffer;
    bool m_accepted = false;
    std::uint16_t m_devicesGrabbed = 0;
    bool m_sentArmed = false;
    bool m_announced = false;
    bool m_reconnectedSinceCheck = false;
    Refusal m_refusal = Refusal::none;
    std::function<void()> m_onPointerButton;
};
