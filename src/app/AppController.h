#pragma once

#include "app/CommandLine.h"
#include "app/DiagnosticsText.h"
#include "app/KeyContext.h"
#include "app/StatusPublisher.h"
#include "app/VolumeMirror.h"
#include "discovery/ZoneState.h"
#include "keys/EventTap.h"
#include "support/SerialQueue.h"
#include "support/Settings.h"

#include <QDateTime>
#include <QList>
#include <QObject>
#include <QString>

#include <memory>
#include <optional>

class AudioDevice;
class DismissMonitor;
class NetworkWatch;
class SettingsSaver;
class SingleInstance;
class SleepWatch;
class SpeakerController;
class StartUp;
class StatusItem;
class VolumeHUD;

// The application: owns every long-lived object (settings, speaker controller, overlay, key
// capture, dismiss monitor, tray icon, wake and network watches), wires their signals, and
// keeps the flags the arming decision reads. Main thread only; what it owns reports to it
// through signals whose connections end with it.
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
    // The status last handed to the tray (and the panel), absent before the first.
    std::optional<AppStatus> lastStatus() const;
    // The zones the panel offers as speakers, from the latest choices refresh.
    const QList<ZoneState>& speakerChoices() const { return m_choices; }
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
    void startSupervision();
    // `began` is the mirror generation when the refresh was asked for.
    void refreshConnection(quint64 began);
    void refreshChoices();
    void saveSettings();
    AppStatus buildStatus(quint64 generation) const;
    void showStatus(const AppStatus& status);
    void updateDismissMonitor();
    void scheduleDemonstrations();
    void showOnboarding();
    void explainInputAccess();
    void armingInputsChanged();
    void onHealthChange(bool trusted, bool tapEnabled);
    void logStartLine() const;

    Options m_options;
    Settings m_settings;
    std::shared_ptr<AudioDevice> m_audio;
    std::unique_ptr<SpeakerController> m_speaker;
    std::unique_ptr<SettingsSaver> m_saver;
    std::unique_ptr<StartUp> m_startUp;
    std::unique_ptr<StatusPublisher> m_publisher;
    std::unique_ptr<VolumeHUD> m_hud;
    std::unique_ptr<EventTap> m_tap;
    std::unique_ptr<StatusItem> m_status;
    std::unique_ptr<DismissMonitor> m_dismissMonitor;
    std::unique_ptr<NetworkWatch> m_networkWatch;
    std::unique_ptr<SleepWatch> m_sleepWatch;
    bool m_trusted = false;
    bool m_tapEnabled = false;
    bool m_connected = false;
    bool m_fixedVolume = false; // the connected speaker's volume cannot change
    std::optional<ArmedState> m_lastArmedState;
    // The overlay's level, moved by the keys at once; `m_mirrorGeneration` counts the
    // presses, so that a speaker answer older than the latest press does not undo it.
    VolumeMirror m_mirror;
    quint64 m_mirrorGeneration = 0;
    QList<ZoneState> m_choices;
    QDateTime m_choicesStamp;
    bool m_choicesInFlight = false;
    // Last, so that a diagnostics job still running finds everything else in place.
    SerialQueue m_logReader;
};
