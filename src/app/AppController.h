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
#include <QPointer>
#include <QString>

#include <memory>
#include <optional>

class AudioDevice;
class DismissMonitor;
class DisplayOptionsWatcher;
class AirPlayBrowser;
class KeyCapture;
class LoginItem;
class OnboardingWindow;
class MediaSource;
class NetworkWatch;
class PanelRequests;
class ProblemReportWindow;
class ReportSender;
class SettingsSaver;
class SingleInstance;
class SleepWatch;
class SnapshotBuilder;
class SpeakerChoices;
class Appearance;
class ColorScheme;
class MenuBarPanel;
class SpeakerController;
class SpeakerEvents;
class StartUp;
class Uninstaller;
class Updates;
struct UpdateFeed;
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
    // The snapshot last handed to the panel, absent before the first.
    std::optional<PanelSnapshot> lastSnapshot() const;
    // The state "Copy Diagnostics" describes, without the log's lines.
    DiagnosticsState diagnosticsState() const;
    // Puts the diagnostics text on the clipboard and says so.
    void copyDiagnostics();
    // Gathers the facts a problem report carries, then shows the window to send one.
    void showProblemReport();

    // The panel's hooks: its periodic poll, and its wish for fresh speaker choices (heeded
    // at most once a minute).
    void tick();
    void choicesNeeded();

private:
    void makePanel();
    void connectPanel();
    void followColorScheme();
    void startSupervision();
    // `began` is the mirror generation when the refresh was asked for.
    void refreshConnection(quint64 began);
    void saveSettings();
    void buildSnapshot(quint64 generation);
    void showSnapshot(const PanelSnapshot& snapshot);
    void updateDismissMonitor();
    void scheduleDemonstrations();
    void showOnboarding();
    // The end of setup: the speaker picked there, and whether to open at login.
    void finishSetup(const std::optional<QString>& speaker, bool openAtLogin);
    void explainInputAccess();
    void armingInputsChanged();
    void onHealthChange(bool trusted, bool tapEnabled);
    void updateMenuFacts();
    void toggleAutomaticChecks();
    void announceUpdate(const UpdateFeed& feed);
    void logStartLine() const;

    Options m_options;
    Settings m_settings;
    std::shared_ptr<AudioDevice> m_audio;
    std::unique_ptr<SpeakerController> m_speaker;
    // Follows the speaker's own reports of changes; goes before the controller it feeds.
    std::unique_ptr<SpeakerEvents> m_events;
    std::unique_ptr<MediaSource> m_media;
    std::unique_ptr<SettingsSaver> m_saver;
    std::unique_ptr<StartUp> m_startUp;
    std::unique_ptr<StatusPublisher> m_publisher;
    std::unique_ptr<SnapshotBuilder> m_snapshots;
    std::unique_ptr<AirPlayBrowser> m_airplay;
    std::unique_ptr<SpeakerChoices> m_choices;
    std::unique_ptr<PanelRequests> m_requests;
    // The desktop's accessibility preferences, shared by the overlay and the panel.
    std::unique_ptr<DisplayOptionsWatcher> m_displayOptions;
    std::unique_ptr<VolumeHUD> m_hud;
    std::unique_ptr<KeyCapture> m_capture;
    std::unique_ptr<MenuBarPanel> m_panel;
    std::unique_ptr<ColorScheme> m_colorScheme;
    std::unique_ptr<Appearance> m_appearance;
    std::unique_ptr<DismissMonitor> m_dismissMonitor;
    std::unique_ptr<NetworkWatch> m_networkWatch;
    std::unique_ptr<SleepWatch> m_sleepWatch;
    std::unique_ptr<LoginItem> m_loginItem;
    std::unique_ptr<Updates> m_updates;
    std::unique_ptr<Uninstaller> m_uninstaller;
    QString m_updateNotice; // for the warning line while nothing more pressing is shown
    // The setup window while it is open; it deletes itself when closed.
    QPointer<OnboardingWindow> m_onboarding;
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
    std::unique_ptr<ReportSender> m_reportSender;
    std::unique_ptr<ProblemReportWindow> m_reportWindow;
    // Last, so that a diagnostics job still running finds everything else in place.
    SerialQueue m_logReader;
};
