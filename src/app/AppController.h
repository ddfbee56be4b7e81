#pragma once

#include "app/ArmedState.h"
#include "app/CommandLine.h"
#include "app/DiagnosticsText.h"
#include "app/KeyContext.h"
#include "app/VolumeMirror.h"
#include "discovery/ZoneState.h"
#include "keys/EventTap.h"
#include "speaker/SpeakerProblem.h"
#include "support/Settings.h"

#include <QDateTime>
#include <QList>
#include <QObject>
#include <QSet>
#include <QString>

#include <functional>
#include <memory>
#include <optional>

class AudioDevice;
class DismissMonitor;
class NetworkWatch;
class SerialQueue;
class SingleInstance;
class SleepWatch;
class SpeakerController;
class StatusItem;
class VolumeHUD;

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

// The application: owns every long-lived object (settings, speaker controller, overlay, key
// capture, dismiss monitor, tray icon, wake and network watches), runs the start-up
// sequence, wires their callbacks, keeps the flags the arming decision reads, and saves the
// settings. Main thread only; every callback held elsewhere holds the controller weakly.
class AppController : public QObject {
    Q_OBJECT
public:
    struct Options {
        CommandLine commandLine;
        // The key service socket; empty for the installed one.
        QString keyServicePath;
        // The sound server backend; null means PulseAudio at its usual place.
        std::shared_ptr<AudioDevice> audio;
    };

    explicit AppController(Options options, QObject* parent = nullptr);
    ~AppController() override;

    // Everything that starts once the event loop runs.
    void applicationDidFinishLaunching(SingleInstance* instance);
    // The application was launched again while running.
    void applicationShouldHandleReopen();

    // The arming decision's inputs as they are now (the default output read afresh).
    KeyContext keyContext() const;
    bool isArmed() const { return keyContext().evaluate().isArmed(); }

    // One reported key-down, while armed.
    void handle(EventTap::MediaKey key, bool fine, bool isRepeat);

    const Settings& settings() const { return m_settings; }
    VolumeMirror mirror() const { return {m_mirrorVolume, m_mirrorMuted}; }
    bool isConnected() const { return m_connected; }
    bool hasSaveFailed() const { return m_saveFailed; }
    std::optional<AppStatus> lastSnapshot() const { return m_lastSnapshot; }
    // The state "Copy Diagnostics" describes, without the log's lines.
    DiagnosticsState diagnosticsState() const;
    // Puts the diagnostics text on the clipboard.
    void copyDiagnostics();

    // The panel's hooks: its periodic poll, and its wish for fresh speaker choices (heeded
    // at most once a minute).
    void tick();
    void choicesNeeded();

signals:
    // A new status reached the tray (and the panel, when there is one).
    void delivered(const AppStatus& status);
    // The setup window should open (a first run, or "--demo-onboarding").
    void onboardingRequested();
    // The panel should open (another launch asked this one to show itself).
    void panelRequested();

private:
    void firstRunSetup(std::function<void()> done);
    void pickFromZones(const QList<ZoneState>& states, std::function<void()> done);
    void detectTriggerOutput();
    // `began` is the mirror generation when the refresh was asked for.
    void refreshConnection(quint64 began);
    void refreshChoices();
    void saveSettings();
    void pollTrigger();
    AppStatus buildSnapshot(quint64 generation) const;
    void deliver(const AppStatus& status);
    void updateDismissMonitor();
    void scheduleDemonstrations();
    void showOnboarding();
    void explainInputAccess();
    void armingInputsChanged();
    void onHealthChange(bool trusted, bool tapEnabled);
    void startUp();
    void logStartLine() const;

    Options m_options;
    Settings m_settings;
    bool m_isFirstRun = true;
    std::unique_ptr<SpeakerController> m_speaker;
    std::unique_ptr<VolumeHUD> m_hud;
    std::shared_ptr<AudioDevice> m_audio;
    std::unique_ptr<EventTap> m_tap;
    std::unique_ptr<StatusItem> m_status;
    bool m_tapEnabled = false;
    bool m_trusted = false;
    bool m_connected = false;
    bool m_pollInFlight = false;
    quint64 m_pollGeneration = 0;
    bool m_choicesInFlight = false;
    QDateTime m_choicesStamp;
    std::optional<AppStatus> m_lastSnapshot;
    QSet<QString> m_opticalCapable;
    std::optional<QString> m_playingOverOptical;
    QList<ZoneState> m_zoneStates;
    std::unique_ptr<DismissMonitor> m_dismissMonitor;
    std::unique_ptr<NetworkWatch> m_networkMonitor;
    std::unique_ptr<SleepWatch> m_sleepWatch;
    int m_mirrorVolume = 50;
    bool m_mirrorMuted = false;
    quint64 m_mirrorGeneration = 0;
    bool m_saveFailed = false;
    std::unique_ptr<SerialQueue> m_saves;
    std::optional<ArmedState> m_lastArmedState;
};
