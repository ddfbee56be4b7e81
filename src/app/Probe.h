#pragma once

#include "app/ProbeReport.h"

#include <QElapsedTimer>
#include <QList>
#include <QObject>

#include <functional>
#include <memory>

class AudioDevice;
class SonosDevice;

// Runs the probe once on the calling thread's event loop: asks every source in turn, without
// ever blocking, and hands each section of the report to `print` as soon as its facts are in.
// Reads the settings file and nothing else of the user's; writes nothing, changes no output,
// installs no key capture. `finished` is emitted once, after the last line.
class Probe : public QObject {
    Q_OBJECT
public:
    using Print = std::function<void(const QStringList& lines)>;

    struct Options {
        QString settingsPath;   // empty: the user's own settings file
        QString keyServicePath; // empty: the key service's usual socket
        int audioWaitMs = 2000; // how long the sound server may take for its first copy
        double discoveryTimeout = 3.0;
        // How long the zones, all asked at once, may take to say what they hold.
        int zonesWaitMs = 8000;
    };

    explicit Probe(Print print, QObject* parent = nullptr);
    Probe(Print print, Options options, QObject* parent = nullptr);
    ~Probe() override;

    void start();

signals:
    void finished();

private:
    void checkRunningCopy();
    void printHead();
    void waitForAudio();
    void printAudio();
    void discover();
    void showZones(const QList<SonosDevice>& found, const QList<SonosDevice>& visible);
    void askZone(int index);
    void zoneAnswered(int index, ProbeReport::Zone zone);
    void zonesOutOfTime();
    void printZonesInOrder();
    void finish();

    Print m_print;
    Options m_options;
    ProbeReport::Facts m_facts;
    bool m_settingsLoaded = false;
    bool m_zonesDone = false;
    std::unique_ptr<AudioDevice> m_audio;
    QList<SonosDevice> m_visible;
    QList<bool> m_zoneAnswered; // per visible zone: its facts are in (answered or given up)
    qsizetype m_zonesPrinted = 0;
    QElapsedTimer m_discoveryClock;
};
