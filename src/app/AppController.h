#pragma once

#include "app/CommandLine.h"
#include "app/DiagnosticsText.h"
#include "app/KeyContext.h"
#include "app/StatusPublisher.h"
#include "app/VolumeMirror.h"
#include "keys/EventTap.h"
#include "support/SerialQueue.h"
#include "support/Settings.h"
#include "ui/panel/PanelFix.h"
#include "ui/panel/PanelSnapshot.h"
#include "ui/panel/PanelTransport.h"

#include <QObject>
#include <QString>

#include <memory>
#include <optional>

class AudioDevice;
class DismissMonitor;
class MediaSource;
class NetworkWatch;
class PanelRequests;
class SettingsSaver;
class SingleInstance;
class SleepWatch;
class SnapshotBuilder;
class SpeakerChoices;
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
    // The snapshot last handed to the tray and the panel (without artwork), absent before
    // the first.
    std::optional<PanelSnapshot> lastSnapshot() const;
    // The state "Copy Diagnostics" describes, without the log's lines.
    DiagnosticsState diagnosticsState() const;
    // Puts the diagnostics text on the clipboard.
    void copyDiagnostics();

public slots:
    // The panel's hooks, named as its signals: its periodic poll, its wish for fresh speaker
    // choices (heeded at most once a minute), whether it is open, and what the user asks.
    void tick();
    void choicesNeeded();
    void shownChanged(bool shown);
    void panelDidRequestVolume(int volume);
    void panelDidRequestMute();
    void panelDidToggleNight();
    void panelDidToggleSpeech();
    void panelDidToggleKeys();
    void panelDidChooseSpeaker(const QString& name, Settings::Route route);
    void panelDidChooseTrigger(const QString& name);
    void panelDidRequestTransport(PanelTransport transport);
    void panelDidRequestFix(PanelFix fix);
    void panelDidRequestProblemReport();
    void panelDidRequestDiagnostics();
    void panelDidRequestSetupAgain();
    void panelDidRequestUninstall();
    void panelDidRequestUpdateCheck();
    void panelDidToggleAutomaticChecks();
    void panelDidToggleLoginItem();
    void panelDidRequestQuit();

signals:
    // A new snapshot reached the tray (and the panel, when there is one).
    void delivered(const PanelSnapshot& snapshot);
    // The panel's warning line should say `text` (for a moment, until the next snapshot).
    void panelWarningRequested(const QString& text, PanelFix fix, bool critical);
    // The panel's settings section should open.
    void panelSettingsSectionRequested();
    // The setup window should open (a first run, or "--demo-onboarding").
    void onboardingRequested();
    // The panel should open (another launch asked this one to show itself).
    void panelRequested();

private:
    void startSupervision();
    // `began` is the mirror generation when the refresh was asked for.
    void refreshConnection(quint64 began);
    void saveSettings();
    void buildSnapshot(quint64 generation);
    void showSnapshot(const PanelSnapshot& snapshot);
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
    std::unique_ptr<MediaSource> m_media;
    std::unique_ptr<SettingsSaver> m_saver;
    std::unique_ptr<StartUp> m_startUp;
    std::unique_ptr<StatusPublisher> m_publisher;
    std::unique_ptr<SnapshotBuilder> m_snapshots;
    std::unique_ptr<SpeakerChoices> m_choices;
    std::unique_ptr<PanelRequests> m_requests;
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
    bool m_panelShown = false;
    std::optional<ArmedState> m_lastArmedState;
    // The overlay's level, moved by the keys at once; `m_mirrorGeneration` counts the
    // presses, so that a speaker answer older than the latest press does not undo it.
    VolumeMirror m_mirror;
    quint64 m_mirrorGeneration = 0;
    // Last, so that a diagnostics job still running finds everything else in place.
    SerialQueue m_logReader;
};
