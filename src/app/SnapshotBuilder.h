#pragma once

#include "app/KeyContext.h"
#include "app/VolumeMirror.h"
#include "app/WarningText.h"
#include "speaker/ArtworkCache.h"
#include "speaker/SpeakerController.h"
#include "ui/panel/PanelSnapshot.h"

#include <QFuture>
#include <QObject>

class MediaSource;

// Everything a snapshot is made from that the controller holds in memory, copied when the
// build begins.
struct SnapshotInputs {
    quint64 generation = 0;
    SpeakerController::Snapshot speaker;
    std::optional<SonosDevice> device; // the connected player
    KeyContext keys;
    VolumeMirror mirror;
    // The warning line's inputs but for the line input, which the speaker is asked about.
    WarningInputs warning;
    std::optional<QList<SpeakerChoice>> speakerChoices;
    QStringList outputs;
};

// Builds the panel's snapshots. What the connected player plays, its night mode, speech
// enhancement and transport are asked at once, in parallel; an answer that fails (or makes
// no sense) leaves its field as a fresh snapshot has it. Without a player, or while it only
// plays this computer's sound, the now-playing lines and transport come from the computer's
// own media source. Main thread only; the answer comes back on it.
class SnapshotBuilder : public QObject {
    Q_OBJECT
public:
    // `media` must outlive the builder.
    explicit SnapshotBuilder(MediaSource& media, QObject* parent = nullptr);

    QFuture<PanelSnapshot> build(const SnapshotInputs& inputs);

private:
    MediaSource& m_media;
    ArtworkCache m_artwork;
};
