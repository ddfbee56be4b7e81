#include "app/StartUp.h"

#include "app/OpticalZonePick.h"
#include "audio/AudioDevice.h"
#include "discovery/ZoneScan.h"
#include "speaker/SpeakerController.h"
#include "support/Log.h"
#include "support/PlatformWords.h"
#include "support/Settings.h"

#include <QTimer>

using namespace std::chrono_literals;

namespace {

// How long trigger detection waits for the sound server's first report.
constexpr auto kAudioReadyWait = 3s;
constexpr double kFirstRunDiscoveryTimeout = 3.0;

} // namespace

StartUp::StartUp(Settings& settings, AudioDevice& audio, SpeakerController& speaker,
                 bool isFirstRun, QObject* parent)
    : QObject(parent)
    , m_settings(settings)
    , m_audio(audio)
    , m_speaker(speaker)
    , m_isFirstRun(isFirstRun)
{
}

void StartUp::run()
{
    if (m_isFirstRun && m_settings.speaker.isEmpty()) {
        ZoneScan::zoneStates(SonosDiscovery::Coordinator::shared(), kFirstRunDiscoveryTimeout)
            .then(this, [this](const QList<ZoneState>& states) {
                pickFromZones(states);
                detectWhenAudioReady();
            });
    } else if (m_isFirstRun) {
        detectWhenAudioReady();
    } else if (!m_settings.triggerConfigured && m_settings.triggerOutput.isEmpty()) {
        Log::info(QStringLiteral("no output recorded — looking again before deciding"));
        detectWhenAudioReady();
    } else {
        emit finished();
    }
}

void StartUp::pickFromZones(const QList<ZoneState>& states)
{
    const std::optional<QString> picked = pickOpticalZone(states);
    if (picked && !m_settings.speaker.isEmpty()) {
        Log::info(QStringLiteral("Auto-detect found ") + *picked + QStringLiteral(", but '") +
                  m_settings.speaker + QStringLiteral("' ") +
                  QStringLiteral("was chosen while it was looking — keeping the choice"));
    } else if (picked) {
        m_speaker.switchTo(*picked);
        m_settings.speaker = *picked;
        Log::info(QStringLiteral("Auto-detected ") + *picked +
                  QStringLiteral(" as the speaker connected by optical cable"));
        emit settingsChanged();
    }
}

void StartUp::detectWhenAudioReady()
{
    if (m_audio.state().connected)
        return detectAndFinish();
    m_waitingForAudio = true;
    connect(&m_audio, &AudioDevice::changed, this, [this] {
        if (m_waitingForAudio && m_audio.state().connected)
            detectAndFinish();
    });
    QTimer::singleShot(kAudioReadyWait, this, [this] {
        if (m_waitingForAudio)
            detectAndFinish();
    });
}

void StartUp::detectAndFinish()
{
    m_waitingForAudio = false;
    if (m_settings.triggerOutput.isEmpty()) {
        const std::optional<QString> found = m_audio.detectTriggerOutput();
        if (found) {
            m_settings.rememberTrigger(*found, m_settings.route);
            m_settings.triggerOutput = *found;
            m_settings.triggerConfigured = true;
            Log::info(QStringLiteral("Auto-detected trigger output: ") + *found);
        } else {
            Log::info(QString::fromUtf8(platformText(PlatformText::keysStayWithDesktop)));
        }
        emit settingsChanged();
    }
    emit finished();
}
