#include "app/AppController.h"

#include "app/OpticalZonePick.h"
#include "app/PanelRequests.h"
#include "app/ReportSender.h"
#include "app/SettingsSaver.h"
#include "app/SnapshotBuilder.h"
#include "app/SpeakerChoices.h"
#include "app/StartUp.h"
#include "audio/OutputRoute.h"
#include "audio/PulseAudio.h"
#include "desktop/ColorScheme.h"
#include "desktop/DisplayOptions.h"
#include "desktop/NetworkWatch.h"
#include "desktop/SleepWatch.h"
#include "discovery/AirPlayBrowser.h"
#include "discovery/Coordinator.h"
#include "discovery/ZoneScan.h"
#include "housekeeping/LoginItem.h"
#include "housekeeping/SingleInstance.h"
#include "housekeeping/Uninstaller.h"
#include "housekeeping/Updates.h"
#include "keys/DismissMonitor.h"
#include "keys/KeyCapture.h"
#include "media/MediaSource.h"
#include "speaker/SpeakerController.h"
#include "speaker/SpeakerEvents.h"
#include "support/Log.h"
#include "support/MacModel.h"
#include "support/PlatformWords.h"
#include "support/ProblemReport.h"
#include "support/SystemFacts.h"
#include "support/UiText.h"
#include "ui/Appearance.h"
#include "ui/VolumeHUD.h"
#include "ui/panel/MenuBarPanel.h"
#include "ui/report/DiagnosticsAlerts.h"
#include "ui/report/ProblemReportWindow.h"
#include "ui/setup/OnboardingWindow.h"

#include <QApplication>
#include <QClipboard>
#include <QEventLoop>
#include <QSysInfo>
#include <QSystemTrayIcon>
#include <QTimer>

#include <algorithm>

using namespace std::chrono_literals;

namespace {

constexpr auto kWatchdogInterval = 3s;
constexpr auto kDismissRedecision = 2s;
constexpr auto kDemoFinishDelay = 3500ms;
constexpr double kSetupSweepSeconds = 3.0;

} // namespace

AppController::AppController(Options options, QObject* parent)
    : QObject(parent)
    , m_options(std::move(options))
    , m_audio(m_options.audio ? m_options.audio : std::make_shared<PulseAudio>())
    , m_media(createMediaSource(*m_audio))
    , m_saver(std::make_unique<SettingsSaver>())
    , m_publisher(std::make_unique<StatusPublisher>())
    , m_snapshots(std::make_unique<SnapshotBuilder>(*m_media))
    , m_airplay(std::make_unique<AirPlayBrowser>())
    , m_choices(
          std::make_unique<SpeakerChoices>(SonosDiscovery::Coordinator::shared(), m_airplay.get()))
    , m_displayOptions(std::make_unique<DisplayOptionsWatcher>())
    , m_hud(std::make_unique<VolumeHUD>(m_displayOptions.get()))
    , m_networkWatch(std::make_unique<NetworkWatch>())
    , m_loginItem(std::make_unique<LoginItem>())
    , m_updates(std::make_unique<Updates>(Updates::Options{
          QUrl(QStringLiteral(VELOTIDE_UPDATE_FEED)), QCoreApplication::applicationVersion()}))
    , m_uninstaller(std::make_unique<Uninstaller>(*m_loginItem))
{
    const Settings::Loaded loaded = Settings::load();
    m_settings = loaded.settings;
    m_speaker = std::make_unique<SpeakerController>(m_settings.speaker);
    m_speaker->setKnownHost(m_settings.lastKnownHost);
    m_events = std::make_unique<SpeakerEvents>(*m_speaker);
    m_startUp = std::make_unique<StartUp>(m_settings, *m_audio, *m_speaker, loaded.isFirstRun);
    m_requests = std::make_unique<PanelRequests>(
        PanelRequests::State{m_settings, m_mirror, m_mirrorGeneration}, *m_speaker, *m_media);
    m_requests->setOutputRoute(new OutputRoute(*m_audio, *m_airplay, m_requests.get()));

    connect(m_requests.get(), &PanelRequests::settingsChanged, this, [this] {
        saveSettings();
        armingInputsChanged();
    });
    connect(m_requests.get(), &PanelRequests::pollRequested, this, &AppController::tick);
    connect(m_requests.get(), &PanelRequests::inputAccessExplanationRequested, this,
            &AppController::explainInputAccess);
    connect(m_requests.get(), &PanelRequests::uninstallRequested, m_uninstaller.get(),
            &Uninstaller::run);
    connect(m_uninstaller.get(), &Uninstaller::finished, qApp, &QCoreApplication::quit);
    connect(m_loginItem.get(), &LoginItem::changed, this, &AppController::updateMenuFacts);
    connect(m_updates.get(), &Updates::newerVersion, this, &AppController::announceUpdate);
    connect(m_updates.get(), &Updates::upToDate, this, [] {
        notifyDesktop(uiText("Velotide is up to date"), uiText("You have the newest version."));
    });
    connect(m_updates.get(), &Updates::checkFailed, this, [](const QString& reason) {
        notifyDesktop(uiText("Could not check for updates"), reason);
    });
    connect(m_choices.get(), &SpeakerChoices::refreshed, m_publisher.get(),
            &StatusPublisher::request);

    connect(m_networkWatch.get(), &NetworkWatch::changed, this, [this] {
        m_speaker->reconnectNow(QStringLiteral("network changed"));
        m_events->resubscribe(QStringLiteral("network changed"));
    });
    connect(m_events.get(), &SpeakerEvents::playbackChanged, m_publisher.get(),
            &StatusPublisher::request);
    // The players are told the subscriptions end; the loop has stopped, so it turns a
    // moment longer for their answers.
    connect(qApp, &QCoreApplication::aboutToQuit, this, [this] {
        QEventLoop told;
        m_events->stop().then(&told, [&told] { told.quit(); });
        QTimer::singleShot(500, &told, &QEventLoop::quit);
        told.exec();
    });
    // Answers come back inside the speaker controller's own work: the refresh follows it,
    // and it began now, so a key pressed in between keeps the mirror's value.
    connect(m_speaker.get(), &SpeakerController::changed, this, [this] {
        QTimer::singleShot(0, this,
                           [this, began = m_mirrorGeneration] { refreshConnection(began); });
    });
    connect(m_speaker.get(), &SpeakerController::hostLearned, this, [this](const QString& host) {
        m_settings.lastKnownHost = host;
        saveSettings();
    });
    connect(m_startUp.get(), &StartUp::settingsChanged, this, [this] {
        saveSettings();
        armingInputsChanged();
    });
    connect(m_startUp.get(), &StartUp::finished, this, &AppController::startSupervision);
    connect(m_saver.get(), &SettingsSaver::failedChanged, this, &AppController::tick);
    connect(m_publisher.get(), &StatusPublisher::buildRequested, this,
            &AppController::buildSnapshot);
    connect(m_publisher.get(), &StatusPublisher::published, this, &AppController::showSnapshot);
}

AppController::~AppController()
{
    // Its providers read this controller.
    delete m_onboarding;
    // The dismiss monitor may listen through the tap's connection: it goes first.
    m_dismissMonitor.reset();
    m_capture.reset();
}

void AppController::applicationDidFinishLaunching(SingleInstance* instance)
{
    QApplication::setQuitOnLastWindowClosed(false);
    logStartLine();

    m_dismissMonitor = std::make_unique<DismissMonitor>();
    connect(m_dismissMonitor.get(), &DismissMonitor::clicked, this, [this](QPoint at) {
        m_hud->dismiss();
        if (m_panel)
            m_panel->closeIfOutside(at);
        updateDismissMonitor();
    });
    followColorScheme();
    if (instance)
        connect(instance, &SingleInstance::showRequested, this,
                &AppController::applicationShouldHandleReopen);

    m_sleepWatch = std::make_unique<SleepWatch>();
    connect(m_sleepWatch.get(), &SleepWatch::woke, this, [this] {
        m_speaker->reconnectNow(QStringLiteral("woke from sleep"));
        m_events->resubscribe(QStringLiteral("woke from sleep"));
    });
    m_networkWatch->start();
    scheduleDemonstrations();

    // The tap is owned here and goes first in the destructor, so its callbacks may hold
    // the controller plainly.
    EventTap::Callbacks callbacks;
    callbacks.armed = [this] { return isArmed(); };
    callbacks.onKey = [this](EventTap::MediaKey key, bool fine, bool isRepeat) {
        handle(key, fine, isRepeat);
    };
    callbacks.onHealthChange = [this](bool trusted, bool tapEnabled) {
        onHealthChange(trusted, tapEnabled);
    };
    // Input access is a property of the key capture here, so the capture is made before the
    // question is asked, and installed after it.
    m_capture = std::make_unique<KeyCapture>(std::move(callbacks),
                                             EventTap::Options{m_options.keyServicePath});
    m_trusted = m_capture->tap().isTrusted();
    if (m_options.commandLine.demoOnboarding || m_startUp->isFirstRun())
        showOnboarding();
    else if (!m_trusted)
        explainInputAccess();
    // A key service started or stopped later brings a tap of its own.
    m_dismissMonitor->setKeyServiceTap(&m_capture->tap());
    connect(m_capture.get(), &KeyCapture::tapReplaced, m_dismissMonitor.get(),
            &DismissMonitor::setKeyServiceTap);
    m_capture->start(kWatchdogInterval);

    connect(m_audio.get(), &AudioDevice::changed, this, &AppController::armingInputsChanged);
    armingInputsChanged();

    m_updates->start(m_settings.automaticUpdateChecks);

    QTimer::singleShot(0, m_startUp.get(), &StartUp::run);
    // Built once the first speaker requests are on their way: its widgets, fonts and icons
    // take the main thread for a while, and nothing needs them before it is shown.
    QTimer::singleShot(0, this, &AppController::makePanel);
}

void AppController::makePanel()
{
    m_panel = std::make_unique<MenuBarPanel>(m_settings);
    m_panel->setDisplayOptions(m_displayOptions->options());
    connect(m_displayOptions.get(), &DisplayOptionsWatcher::changed, m_panel.get(),
            &MenuBarPanel::setDisplayOptions);
    connectPanel();
    updateMenuFacts();
    tick();
}

void AppController::applicationShouldHandleReopen()
{
    if (m_onboarding)
        m_onboarding->bringToFront();
    else if (m_panel)
        m_panel->present();
}

// Every action in the panel goes to the request it names; the requests change the state
// here and ask for the poll that shows the outcome.
void AppController::connectPanel()
{
    MenuBarPanel* panel = m_panel.get();
    PanelRequests* requests = m_requests.get();
    connect(panel, &MenuBarPanel::tick, this, [this] {
        updateDismissMonitor();
        m_publisher->refresh();
    });
    connect(panel, &MenuBarPanel::choicesNeeded, this, &AppController::choicesNeeded);
    connect(panel, &MenuBarPanel::shownChanged, this, [this](bool shown) {
        m_panelShown = shown;
        updateDismissMonitor();
    });
    connect(panel, &MenuBarPanel::panelDidRequestVolume, requests,
            &PanelRequests::panelDidRequestVolume);
    // The button is the mute key: the overlay shows the change as for the key.
    connect(panel, &MenuBarPanel::panelDidRequestMute, this,
            [this] { handle(EventTap::MediaKey::mute, false, false); });
    connect(panel, &MenuBarPanel::panelDidToggleNight, requests,
            &PanelRequests::panelDidToggleNight);
    connect(panel, &MenuBarPanel::panelDidToggleSpeech, requests,
            &PanelRequests::panelDidToggleSpeech);
    connect(panel, &MenuBarPanel::panelDidToggleKeys, requests, &PanelRequests::panelDidToggleKeys);
    connect(panel, &MenuBarPanel::panelDidChooseSpeaker, requests,
            &PanelRequests::panelDidChooseSpeaker);
    connect(panel, &MenuBarPanel::panelDidChooseTrigger, requests,
            &PanelRequests::panelDidChooseTrigger);
    connect(panel, &MenuBarPanel::panelDidRequestTransport, requests,
            &PanelRequests::panelDidRequestTransport);
    connect(panel, &MenuBarPanel::panelDidRequestFix, requests, &PanelRequests::panelDidRequestFix);
    connect(panel, &MenuBarPanel::panelDidRequestDiagnostics, this,
            &AppController::copyDiagnostics);
    connect(panel, &MenuBarPanel::panelDidRequestQuit, qApp, &QCoreApplication::quit);
    connect(panel, &MenuBarPanel::panelDidRequestProblemReport, this,
            &AppController::showProblemReport);
    connect(panel, &MenuBarPanel::panelDidRequestSetupAgain, this, [this] { showOnboarding(); });
    connect(panel, &MenuBarPanel::panelDidRequestUninstall, m_uninstaller.get(), &Uninstaller::run);
    connect(panel, &MenuBarPanel::panelDidRequestUpdateCheck, m_updates.get(), &Updates::checkNow);
    connect(panel, &MenuBarPanel::panelDidToggleAutomaticChecks, this,
            &AppController::toggleAutomaticChecks);
    connect(panel, &MenuBarPanel::panelDidToggleLoginItem, requests,
            [this] { m_requests->panelDidToggleLoginItem(*m_loginItem); });

    connect(requests, &PanelRequests::warningRequested, panel, &MenuBarPanel::setWarning);
    connect(requests, &PanelRequests::settingsSectionRequested, panel, [panel] {
        if (panel->settingsVisible())
            return;
        panel->setSettingsVisible(true);
        panel->applyDisclosure(true);
    });
}

// The tray icon, the panel and the overlay take the desktop's light or dark look.
void AppController::followColorScheme()
{
    m_colorScheme = std::make_unique<ColorScheme>();
    m_appearance = std::make_unique<Appearance>();
    const auto follow = [this] { m_appearance->apply(m_colorScheme->preference()); };
    connect(m_colorScheme.get(), &ColorScheme::changed, this, follow);
    follow();
}

void AppController::logStartLine() const
{
    const QString version = QCoreApplication::applicationVersion();
    QString line =
        QStringLiteral("Starting Velotide ") + (version.isEmpty() ? QStringLiteral("?") : version) +
        QStringLiteral(" for speaker '") +
        (m_settings.speaker.isEmpty() ? QStringLiteral("(not chosen)") : m_settings.speaker) +
        QStringLiteral("' ");
    line += m_settings.triggerOutput.isEmpty()
                ? QStringLiteral("(active on any output)")
                : QStringLiteral("(active while output is '") + m_settings.triggerOutput +
                      QStringLiteral("')");
    Log::info(line);
}

// Staging for screenshots: the setup window shown twice (the second time while it is open),
// or the panel presented on its own.
void AppController::scheduleDemonstrations()
{
    if (m_options.commandLine.demoSetupAgain)
        for (const auto delay : {1000ms, 2000ms})
            QTimer::singleShot(delay, this, &AppController::showOnboarding);
    if (m_options.commandLine.demoPanel)
        QTimer::singleShot(800ms, this, &AppController::applicationShouldHandleReopen);
}

// The setup window, built on a first run or on request; asked again while it is open, it
// starts over from its first step. It is an ordinary window, so while it exists the
// application has a place in the task switcher, which the tray panel never takes.
void AppController::showOnboarding()
{
    if (m_onboarding) {
        m_onboarding->goTo(OnboardingWindow::Step::welcome);
        m_onboarding->bringToFront();
        return;
    }
    using Window = OnboardingWindow;
    Window::Providers providers;
    providers.inputAccess = [this] {
        // An X11 grab that was refused while the display answers means the desktop holds
        // the keys; only the key service gets them there.
        const bool grabRefused =
            m_capture && m_capture->tap().backendName() == QStringLiteral("X11");
        return Window::InputAccess{m_trusted, m_tapEnabled,
                                   grabRefused && m_trusted && !m_tapEnabled};
    };
    providers.zones = [this] {
        return ZoneScan::zoneStates(SonosDiscovery::Coordinator::shared(), kSetupSweepSeconds)
            .then(this, [this](const QList<ZoneState>& states) {
                Window::Zones zones;
                for (const ZoneState& state : states) {
                    zones.names.append(state.device.name);
                    zones.models.insert(state.device.name, state.device.model);
                }
                zones.recommended = zones.names.contains(m_settings.speaker)
                                        ? std::optional(m_settings.speaker)
                                        : pickOpticalZone(states);
                return zones;
            });
    };
    providers.readyState = [this] {
        const KeyContext context = keyContext();
        if (!context.trusted || !context.tapEnabled)
            return Window::ReadyState::noPermission;
        if (context.speakerName.isEmpty())
            return Window::ReadyState::noSpeaker;
        return context.evaluate().isArmed() ? Window::ReadyState::ready
                                            : Window::ReadyState::notArmed;
    };
    providers.loginEnabled = [this] { return m_loginItem->status() == LoginItem::Status::enabled; };
    providers.trayAvailable = [] { return QSystemTrayIcon::isSystemTrayAvailable(); };

    m_loginItem->refresh();
    m_onboarding = new Window(std::move(providers));
    m_onboarding->setAttribute(Qt::WA_DeleteOnClose);
    // A pick is tried at once, as a pick from the panel would be.
    connect(m_onboarding, &Window::previewed, this, [this](const std::optional<QString>& name) {
        if (name)
            m_requests->panelDidChooseSpeaker(*name, m_settings.route);
    });
    connect(m_onboarding, &Window::finished, this, &AppController::finishSetup);
    connect(m_onboarding, &Window::abandoned, this,
            [] { Log::info(QStringLiteral("setup window closed before the end")); });
    if (const std::optional<int> step = m_options.commandLine.demoStep)
        m_onboarding->goTo(static_cast<Window::Step>(std::clamp(*step, 0, Window::stepCount - 1)));
    if (m_options.commandLine.demoFinish)
        QTimer::singleShot(kDemoFinishDelay, m_onboarding, [this] { m_onboarding->finish(); });
    m_onboarding->bringToFront();
}

// The open-at-login answer counts as given once setup ends; the autostart entry is the truth
// of whether it holds, so it is only touched when it differs from the wish.
void AppController::finishSetup(const std::optional<QString>& speaker, bool openAtLogin)
{
    Log::info(QStringLiteral("setup finished with speaker '") + speaker.value_or(QString()) +
              QStringLiteral("', open at login: ") +
              (openAtLogin ? QStringLiteral("yes") : QStringLiteral("no")));
    if (speaker)
        m_requests->panelDidChooseSpeaker(*speaker, m_settings.route);
    m_settings.loginItemOffered = true;
    saveSettings();
    if (openAtLogin == (m_loginItem->status() == LoginItem::Status::enabled))
        return;
    QFuture<bool> done =
        openAtLogin ? m_loginItem->registerIfInstalled() : m_loginItem->setEnabled(false);
    done.then(this, [this, openAtLogin](bool holds) {
        if (!holds && openAtLogin && m_panel)
            m_panel->setWarning(uiText(PlatformText::loginItemNotInstalled), PanelFix::none, false);
    });
}

void AppController::explainInputAccess()
{
    Log::info(QString::fromUtf8(platformText(PlatformText::inputAccessNeededRequesting)));
    static const char* const how = QT_TRANSLATE_NOOP(
        "Velotide", "The volume keys need the key service velotide-keyd. Install it with "
                    "\"sudo make install\", or start an installed one with "
                    "\"sudo systemctl enable --now velotide-keyd\".");
    Log::info(QString::fromUtf8(how));
}

void AppController::startSupervision()
{
    m_speaker->startSupervision();
    refreshConnection(m_mirrorGeneration);
    m_choices->refresh(true, m_settings.speaker);
}

void AppController::refreshConnection(quint64 began)
{
    // The snapshot is kept in memory by the speaker controller, so it is read at once; a key
    // pressed since the refresh began keeps the mirror's own value.
    const SpeakerController::Snapshot snapshot = m_speaker->snapshot();
    const bool armingChanges =
        snapshot.connected != m_connected || snapshot.fixedVolume != m_fixedVolume;
    m_connected = snapshot.connected;
    m_fixedVolume = snapshot.fixedVolume;
    if (m_mirrorGeneration == began)
        m_mirror = {snapshot.volume, snapshot.muted};
    if (armingChanges)
        armingInputsChanged();
    tick();
}

void AppController::choicesNeeded()
{
    m_choices->refresh(false, m_settings.speaker);
}

void AppController::saveSettings()
{
    m_saver->save(m_settings);
}

DiagnosticsState AppController::diagnosticsState() const
{
    const SpeakerController::Snapshot speaker = m_speaker->snapshot();
    DiagnosticsState d;
    d.version = QCoreApplication::applicationVersion();
    d.programPath = QCoreApplication::applicationFilePath();
    d.systemVersion = QSysInfo::prettyProductName();
    d.settings = m_settings;
    d.trusted = m_trusted;
    d.tapEnabled = m_tapEnabled;
    d.speakerConnected = m_connected;
    d.currentOutput = m_audio->defaultOutputName();
    d.loginItem.enabled = m_loginItem->status() == LoginItem::Status::enabled;
    d.loginItem.needsApproval = m_loginItem->status() == LoginItem::Status::requiresApproval;
    d.speaker.connected = speaker.connected;
    d.speaker.fixedVolume = speaker.fixedVolume;
    d.speaker.volume = speaker.volume;
    d.speaker.muted = speaker.muted;
    if (speaker.problem)
        d.speaker.lastError = speakerProblemText(*speaker.problem);
    d.soundServer = m_audio->state().soundServer;
    return d;
}

void AppController::copyDiagnostics()
{
    // The log is read off the main thread; the text reaches the clipboard back on it. The
    // worker is a member, so the controller is still there while the job runs.
    m_logReader.async([this, state = diagnosticsState()] {
        const QString text = diagnosticsText(state, Log::tail(kDiagnosticsLogLines));
        QMetaObject::invokeMethod(
            this,
            [text] {
                QGuiApplication::clipboard()->setText(text);
                Log::info(diagnosticsCopiedLogLine(text));
                showDiagnosticsCopied(diagnosticsPreview(text));
            },
            Qt::QueuedConnection);
    });
}

void AppController::showProblemReport()
{
    // The log and the system's files are read off the main thread, like the diagnostics.
    m_logReader.async([this, state = diagnosticsState()] {
        const ComputerFacts computer{MacModel::describe(SystemFacts::hardwareModel()),
                                     SystemFacts::distribution(), SystemFacts::desktop()};
        const QString logTail =
            ProblemReport::readLogTail(Log::filePath(), Log::filePath() + QStringLiteral(".1"));
        const ProblemReport report =
            ProblemReport::make(reportDiagnostics(state, computer), logTail);
        QMetaObject::invokeMethod(
            this,
            [this, report] {
                if (!m_reportWindow) {
                    m_reportSender = std::make_unique<ReportSender>(ReportSender::builtInAddress());
                    m_reportWindow = std::make_unique<ProblemReportWindow>(
                        [sender = m_reportSender.get()](
                            const QString& email, const QString& description,
                            const ProblemReport& sent, ProblemReportWindow::Done done) {
                            sender->send(email, description, sent.diagnostics, sent.logTail,
                                         std::move(done));
                        });
                }
                m_reportWindow->present(report);
            },
            Qt::QueuedConnection);
    });
}

std::optional<PanelSnapshot> AppController::lastSnapshot() const
{
    return m_publisher->last();
}

void AppController::tick()
{
    updateDismissMonitor();
    m_publisher->request();
}

void AppController::buildSnapshot(quint64 generation)
{
    SnapshotInputs in;
    in.generation = generation;
    in.speaker = m_speaker->snapshot();
    in.device = m_speaker->device();
    in.keys = keyContext();
    in.mirror = m_mirror;
    in.warning.saveFailed = m_saver->hasFailed();
    in.warning.route = m_settings.route;
    in.warning.triggerOutput = m_settings.triggerOutput;
    in.warning.currentOutput = in.keys.currentOutput;
    in.warning.speaker = m_settings.speaker;
    in.warning.opticalCapable = m_choices->opticalCapable();
    in.warning.playingOverOptical = m_choices->playingOverOptical();
    in.warning.ambiguousAirPlayName = m_choices->ambiguousAirPlayName();
    in.speakerChoices = m_choices->choices();
    for (const AudioDevice::Output& output : m_audio->outputs())
        in.outputs.append(output.name);
    m_snapshots->build(in).then(
        this, [this](const PanelSnapshot& snapshot) { m_publisher->publish(snapshot); });
}

void AppController::showSnapshot(const PanelSnapshot& snapshot)
{
    if (!m_panel)
        return;
    // The tooltip says in a line what the panel shows: the speaker's level, or why the keys
    // stay with the desktop.
    QString line = snapshot.armed
                       ? snapshot.speakerName + QStringLiteral(": ") +
                             (snapshot.muted ? uiText("muted") : QString::number(snapshot.volume))
                       : snapshot.armedMessage;
    if (m_saver->hasFailed())
        line += u'\n' + uiText("Could not save settings — check disk space");
    m_panel->setToolTip(QStringLiteral("Velotide\n") + line);
    PanelSnapshot shown = snapshot;
    if (shown.warning.isEmpty())
        shown.warning = m_requests->routeStatus();
    if (shown.connected && shown.armed && shown.warning.isEmpty())
        shown.warning = m_updateNotice;
    m_panel->apply(shown);
}

// The secondary menu's entries follow the login item's and the update checks' state.
void AppController::updateMenuFacts()
{
    if (!m_panel)
        return;
    MenuBarPanel::MenuFacts facts;
    facts.version = QCoreApplication::applicationVersion();
    facts.build = facts.version;
    facts.updaterRunning = m_updates->isRunning();
    facts.automaticChecks = m_updates->automaticallyChecks();
    facts.loginItemEnabled = m_loginItem->status() == LoginItem::Status::enabled;
    facts.loginItemNeedsApproval = m_loginItem->status() == LoginItem::Status::requiresApproval;
    m_panel->setMenuFacts(facts);
}

void AppController::toggleAutomaticChecks()
{
    m_settings.automaticUpdateChecks = !m_updates->automaticallyChecks();
    m_updates->setAutomaticallyChecks(m_settings.automaticUpdateChecks);
    saveSettings();
    updateMenuFacts();
}

// Packages come from the distribution, so the user is told where to get the new one.
void AppController::announceUpdate(const UpdateFeed& feed)
{
    m_updateNotice = uiText("Velotide %1 is available \u2014 update it with your package manager")
                         .arg(feed.version);
    QStringList body;
    if (!feed.note.isEmpty())
        body << feed.note;
    body << uiText("Update it with your package manager, for example: sudo apt upgrade velotide");
    if (feed.page.isValid())
        body << feed.page.toString();
    notifyDesktop(uiText("Velotide %1 is available").arg(feed.version), body.join(u'\n'));
    tick();
}

void AppController::updateDismissMonitor()
{
    if (!m_dismissMonitor)
        return;
    if (m_hud->alpha() > 0 || m_panelShown)
        m_dismissMonitor->start();
    else
        m_dismissMonitor->stop();
}

KeyContext AppController::keyContext() const
{
    KeyContext context;
    context.paused = m_settings.paused;
    context.trusted = m_trusted;
    context.tapEnabled = m_tapEnabled;
    context.triggerOutput = m_settings.triggerOutput;
    context.triggerConfigured = m_settings.triggerConfigured;
    context.currentOutput = m_audio->defaultOutputName();
    context.speakerConnected = m_connected;
    context.speakerFixedVolume = m_fixedVolume;
    context.speakerName = m_settings.speaker;
    return context;
}

void AppController::armingInputsChanged()
{
    if (m_capture)
        m_capture->tap().reevaluate();
    const ArmedState state = keyContext().evaluate();
    if (m_lastArmedState != state) {
        m_lastArmedState = state;
        if (m_onboarding)
            m_onboarding->updateStatus();
        Log::info(state.isArmed() ? QStringLiteral("volume keys armed")
                                  : QStringLiteral("volume keys not armed — ") + state.reason());
        m_publisher->request();
    }
}

void AppController::onHealthChange(bool trusted, bool tapEnabled)
{
    const bool changed = trusted != m_trusted || tapEnabled != m_tapEnabled;
    m_trusted = trusted;
    m_tapEnabled = tapEnabled;
    if (changed)
        armingInputsChanged();
    if (m_onboarding)
        m_onboarding->updateStatus();
    tick();
}

void AppController::handle(EventTap::MediaKey key, bool fine, bool isRepeat)
{
    VolumeMirror mirror = m_mirror;
    if (!mirror.press(key, fine, isRepeat))
        return;
    m_mirror = mirror;
    ++m_mirrorGeneration;

    if (m_dismissMonitor)
        m_dismissMonitor->start();
    QTimer::singleShot(kDismissRedecision, this, &AppController::updateDismissMonitor);

    m_hud->show(m_mirror.volume, m_mirror.muted, !m_connected, m_settings.speaker);
    // The key path returns before any network work starts; the speaker controller keeps
    // the order of these hand-offs and coalesces them.
    QTimer::singleShot(0, this,
                       [this, sent = mirror] { m_speaker->apply(sent.volume, sent.muted); });
}
