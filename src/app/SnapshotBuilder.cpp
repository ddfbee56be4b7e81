#include "app/SnapshotBuilder.h"

#include "media/MediaSource.h"
#include "speaker/NowPlayingLines.h"
#include "support/ReadyFuture.h"

#include <QPromise>

#include <memory>

namespace {

// The answers of one build, filled in as they come; the last one to arrive finishes it.
struct Pending {
    PanelSnapshot snapshot;
    WarningInputs warning;
    SonosResult<SonosDevice::NowPlaying> nowPlaying = SpeakerError{};
    bool speakerPlaying = false;
    int outstanding = 0;
    QPromise<PanelSnapshot> promise;
};

void fillFromMedia(PanelSnapshot& s, const std::optional<MediaSource::Item>& item)
{
    if (!item)
        return;
    if (!item->title.isEmpty())
        s.title = item->title;
    s.subtitle = item->artist;
    s.detail = item->album;
    s.isPlaying = item->playing;
    s.canControlTransport = true;
    // Without art the player's icon stands in, and is redrawn when the player changes.
    s.artworkIdentity = item->artUrl.isEmpty() ? item->desktopEntry : item->artUrl;
    s.artwork = item->artwork;
    if (!item->desktopEntry.isEmpty())
        s.artworkBundleID = item->desktopEntry;
}

} // namespace

SnapshotBuilder::SnapshotBuilder(MediaSource& media, QObject* parent)
    : QObject(parent)
    , m_media(media)
{
}

QFuture<PanelSnapshot> SnapshotBuilder::build(const SnapshotInputs& in)
{
    auto pending = std::make_shared<Pending>();
    PanelSnapshot& s = pending->snapshot;
    const ArmedState armed = in.keys.evaluate();
    s.generation = in.generation;
    s.connected = in.speaker.connected;
    s.speakerName = in.keys.speakerName;
    s.volume = in.mirror.volume;
    s.muted = in.mirror.muted;
    s.currentOutput = in.keys.currentOutput;
    s.armed = armed.isArmed();
    s.armedReason = armed.reason();
    s.armedMessage = armed.panelMessage();
    s.fix = armed.fix(in.speaker.problem);
    if (in.speaker.problem)
        s.error = speakerProblemText(*in.speaker.problem);
    s.speakerChoices = in.speakerChoices;
    s.outputChoices = in.outputs;
    pending->warning = in.warning;
    pending->warning.armed = s.armed;
    pending->warning.armedMessage = s.armedMessage;
    pending->promise.start();

    // Runs once every answer is in. The speaker's own inputs are named by what they are; the
    // computer's media source stands in when the speaker has nothing of its own to show.
    auto finish = [this, pending, player = in.device] {
        if (--pending->outstanding > 0)
            return;
        PanelSnapshot& s = pending->snapshot;
        const auto& playing = pending->nowPlaying;
        s.isLineInput = playing && playing->isLineInput();
        pending->warning.isLineInput = s.isLineInput;
        s.warning = warningText(pending->warning);
        if (playing) {
            const NowPlayingLines lines = NowPlayingLines::of(*playing);
            s.title = lines.title;
            s.subtitle = lines.subtitle;
            s.detail = lines.detail;
        }
        const auto deliver = [pending] {
            pending->promise.addResult(pending->snapshot);
            pending->promise.finish();
        };
        if (playing && !s.isLineInput && player) {
            s.isPlaying = pending->speakerPlaying;
            s.canControlTransport = !playing->uri.isEmpty();
            m_artwork.artwork(*player, playing->albumArt)
                .then(this, [pending, deliver](const Artwork& art) {
                    pending->snapshot.artworkIdentity = art.identity;
                    pending->snapshot.artwork = art.image;
                    deliver();
                });
            return;
        }
        m_media.current().then(this,
                               [pending, deliver](const std::optional<MediaSource::Item>& item) {
                                   fillFromMedia(pending->snapshot, item);
                                   deliver();
                               });
    };

    QFuture<PanelSnapshot> future = pending->promise.future();
    if (!in.speaker.connected || !in.device) {
        pending->outstanding = 1;
        finish();
        return future;
    }
    const SonosDevice& device = *in.device;
    pending->outstanding = 4;
    device.nowPlaying().then(this,
                             [pending, finish](const SonosResult<SonosDevice::NowPlaying>& r) {
                                 pending->nowPlaying = r;
                                 finish();
                             });
    device.isPlaying().then(this, [pending, finish](const SonosResult<bool>& r) {
        pending->speakerPlaying = r && *r;
        finish();
    });
    device.eqBool(QStringLiteral("NightMode"))
        .then(this, [pending, finish](const SonosResult<bool>& r) {
            if (r)
                pending->snapshot.night = *r;
            finish();
        });
    device.speechEnhancement().then(this, [pending, finish](const SonosResult<bool>& r) {
        if (r)
            pending->snapshot.speech = *r;
        finish();
    });
    return future;
}
