#pragma once

#include "discovery/ZoneState.h"

#include <QList>
#include <QObject>

class AudioDevice;
class SpeakerController;
struct Settings;

// What runs once before the speaker is supervised. A first run without a speaker picks the
// zone wired to the optical output; a first run, or a later one that never recorded an
// output, looks for the output sound goes to once the sound server has reported (or after
// a bounded wait). It edits the settings it was given and says so; `finished` follows in
// every case.
class StartUp : public QObject {
    Q_OBJECT
public:
    StartUp(Settings& settings, AudioDevice& audio, SpeakerController& speaker, bool isFirstRun,
            QObject* parent = nullptr);

    void run();
    bool isFirstRun() const { return m_isFirstRun; }

signals:
    // The settings were changed (and should be saved, and the arming decided again).
    void settingsChanged();
    void finished();

private:
    void pickFromZones(const QList<ZoneState>& states);
    void detectWhenAudioReady();
    void detectAndFinish();

    Settings& m_settings;
    AudioDevice& m_audio;
    SpeakerController& m_speaker;
    bool m_isFirstRun;
    bool m_waitingForAudio = false;
};
