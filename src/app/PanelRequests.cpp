#include "app/PanelRequests.h"

#include "audio/OutputRoute.h"
#include "housekeeping/LoginItem.h"
#include "media/MediaSource.h"
#include "speaker/SpeakerController.h"
#include "support/Log.h"
#include "support/ReadyFuture.h"
#include "support/SettingsLink.h"
#include "support/UiText.h"

#include <QDesktopServices>
#include <QProcess>
#include <QPromise>
#include <QTimer>

namespace {

// How long a receiver's check waits for the speaker controller to reach the chosen room.
constexpr std::chrono::seconds kSpeakerWait{10};

MediaSource::Command mediaCommand(PanelTransport transport)
{
    switch (transport) {
    case PanelTransport::playPause:
        return MediaSource::Command::playPause;
    case PanelTransport::next:
        return MediaSource::Command::next;
    case PanelTransport::previous:
        return MediaSource::Command::previous;
    }
    return MediaSource::Command::playPause;
}

QFuture<SonosResult<Done>> speakerCommand(const SonosDevice& device, PanelTransport transport)
{
    switch (transport) {
    case PanelTransport::playPause:
        return device.playPause();
    case PanelTransport::next:
        return device.next();
    case PanelTransport::previous:
        return device.previous();
    }
    return device.playPause();
}

void openPane(SettingsPane pane)
{
    const SettingsLink link = settingsLink(
        pane, desktopFromXdgCurrentDesktop(qEnvironmentVariable("XDG_CURRENT_DESKTOP")));
    if (!link.program.isEmpty() && QProcess::startDetached(link.program, link.arguments))
        return;
    QDesktopServices::openUrl(link.helpPage);
}

} // namespace

PanelRequests::PanelRequests(State state, SpeakerController& speaker, MediaSource& media,
                             QObject* parent)
    : QObject(parent)
    , m_state(state)
    , m_speaker(speaker)
    , m_media(media)
{
}

void PanelRequests::panelDidRequestVolume(int volume)
{
    VolumeMirror& mirror = m_state.mirror;
    mirror.volume = volume;
    // Moving the slider up out of zero unmutes; at zero a muted speaker stays muted.
    if (mirror.muted && volume >= 1)
        mirror.muted = false;
    ++m_state.mirrorGeneration;
    // The speaker controller coalesces a dragged slider into few sends.
    m_speaker.set(volume);
}

void PanelRequests::panelDidToggleNight()
{
    toggleEq(QStringLiteral("night mode"), false);
}

void PanelRequests::panelDidToggleSpeech()
{
    toggleEq(QStringLiteral("speech enhancement"), true);
}

void PanelRequests::toggleEq(const QString& what, bool speech)
{
    const std::optional<SonosDevice> device = m_speaker.device();
    if (!device)
        return;
    QFuture<SonosResult<bool>> read =
        speech ? device->speechEnhancement() : device->eqBool(QStringLiteral("NightMode"));
    read.then(this, [this, what, speech, device = *device](const SonosResult<bool>& on) {
        if (!on) {
            Log::info(QStringLiteral("could not read ") + what + QStringLiteral(" — ") +
                      describe(on.error()));
            emit pollRequested();
            return;
        }
        QFuture<SonosResult<Done>> write = speech ? device.setSpeechEnhancement(!*on)
                                                  : device.setEQ(QStringLiteral("NightMode"), !*on);
        write.then(this, [this, what](const SonosResult<Done>& done) {
            if (!done)
                Log::info(QStringLiteral("could not switch ") + what + QStringLiteral(" — ") +
                          describe(done.error()));
            emit pollRequested();
        });
    });
}

void PanelRequests::panelDidToggleKeys()
{
    m_state.settings.paused = !m_state.settings.paused;
    emit settingsChanged();
    emit pollRequested();
}

void PanelRequests::panelDidChooseSpeaker(const QString& name, Settings::Route route)
{
    Settings& settings = m_state.settings;
    if (name == settings.speaker && route == settings.route)
        return;
    ++m_state.mirrorGeneration;
    settings.speaker = name;
    settings.route = route;
    emit settingsChanged();
    m_speaker.switchTo(name);
    // Moving the computer's audio to the receiver lands later; the choice is stored now.
    if (route == Settings::Route::Airplay)
        routeToReceiver(name);
    emit pollRequested();
}

void PanelRequests::routeToReceiver(const QString& name)
{
    m_routeStatus = uiText("Sending audio to %1\u2026").arg(name);
    emit warningRequested(m_routeStatus, PanelFix::none, false);
    if (!m_route)
        return;
    const quint64 started = ++m_routes;
    // Two receivers may share the room's name; the speaker's own identity tells which one is
    // it. Without that identity at hand there is nothing to hold a receiver to.
    const auto isTheSpeaker = [this, name](const QString& receiverID) {
        return speakerIdentity(name).then(this, [receiverID](const std::optional<QString>& own) {
            return !own || *own == receiverID;
        });
    };
    m_route->route(name, isTheSpeaker).then(this, [this, started](const OutputRoute::Outcome&) {
        if (started != m_routes)
            return;
        m_routeStatus.clear();
        emit pollRequested();
    });
}

// The speaker controller may still be on its way to the room just chosen.
QFuture<std::optional<QString>> PanelRequests::speakerIdentity(const QString& name)
{
    const auto identity = [this, name]() -> std::optional<std::optional<QString>> {
        const std::optional<SonosDevice> device = m_speaker.device();
        if (!device || device->name != name)
            return std::nullopt;
        return device->airplayReceiverID();
    };
    if (const auto known = identity())
        return readyFuture(*known);
    auto promise = std::make_shared<QPromise<std::optional<QString>>>();
    promise->start();
    auto* waiting = new QObject(this);
    const auto answer = [promise, waiting](const std::optional<QString>& id) {
        if (promise->future().isFinished())
            return;
        promise->addResult(id);
        promise->finish();
        waiting->deleteLater();
    };
    connect(&m_speaker, &SpeakerController::changed, waiting, [identity, answer] {
        if (const auto known = identity())
            answer(*known);
    });
    QTimer::singleShot(kSpeakerWait, waiting, [answer] { answer(std::nullopt); });
    return promise->future();
}

void PanelRequests::panelDidChooseTrigger(const QString& name)
{
    Settings& settings = m_state.settings;
    settings.rememberTrigger(name, settings.route);
    settings.triggerOutput = name;
    settings.triggerConfigured = true;
    emit settingsChanged();
    emit pollRequested();
}

void PanelRequests::panelDidRequestTransport(PanelTransport transport)
{
    const std::optional<SonosDevice> device = m_speaker.device();
    if (!device || !m_speaker.snapshot().connected) {
        m_media.send(mediaCommand(transport));
        emit pollRequested();
        return;
    }
    // While the speaker plays its line input it only plays this computer's sound: the
    // command is for the application making that sound.
    device->nowPlaying().then(this, [this, transport, device = *device](
                                        const SonosResult<SonosDevice::NowPlaying>& now) {
        if (now && now->isLineInput()) {
            m_media.send(mediaCommand(transport));
            emit pollRequested();
            return;
        }
        speakerCommand(device, transport).then(this, [this](const SonosResult<Done>& done) {
            if (!done)
                Log::info(QStringLiteral("transport command failed — ") + describe(done.error()));
            emit pollRequested();
        });
    });
}

void PanelRequests::panelDidRequestFix(PanelFix fix)
{
    const PanelFixAction action = panelFixAction(fix);
    switch (action.kind) {
    case PanelFixAction::Kind::nothing:
        return;
    case PanelFixAction::Kind::openSettings:
        if (action.explainInputAccess)
            emit inputAccessExplanationRequested();
        if (action.pane)
            openPane(*action.pane);
        break;
    case PanelFixAction::Kind::resumeKeys:
        m_state.settings.paused = false;
        emit settingsChanged();
        emit pollRequested();
        break;
    case PanelFixAction::Kind::openPanelSettings:
        emit settingsSectionRequested();
        break;
    case PanelFixAction::Kind::runUninstaller:
        emit uninstallRequested();
        break;
    }
    if (!action.criticalWarning.isEmpty())
        emit warningRequested(action.criticalWarning, PanelFix::none, true);
}

void PanelRequests::panelDidToggleLoginItem(LoginItem& loginItem)
{
    switch (loginItem.status()) {
    case LoginItem::Status::requiresApproval:
        openPane(SettingsPane::loginItems);
        return;
    case LoginItem::Status::enabled:
        loginItem.setEnabled(false);
        return;
    case LoginItem::Status::notRegistered:
    case LoginItem::Status::notFound:
        loginItem.setEnabled(true);
        return;
    }
}
