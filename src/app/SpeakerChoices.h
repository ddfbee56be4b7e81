#pragma once

#include "discovery/ZoneState.h"
#include "ui/panel/PanelSnapshot.h"

#include <QDateTime>
#include <QFuture>
#include <QList>
#include <QObject>
#include <QSet>
#include <QString>

#include <optional>

class AirPlayBrowser;
namespace SonosDiscovery {
class Coordinator;
}

// The panel's speaker menu for the zones of one sweep. `topology` is the household's zone
// group state (the raw GetZoneGroupState answer, or several joined), empty when no player
// answered it: bonded rooms and groups then go by their plain room names. Each room gets
// its own route (optical where the room could be wired to this computer, else the network)
// and an AirPlay entry when it can receive AirPlay, rooms sorted by title as people read
// them.
QList<SpeakerChoice> speakerChoices(const QList<ZoneState>& zones, const QString& topology,
                                    const QSet<QString>& opticalCapable);

// The speaker menu and what the warning line needs to know about the household, kept from
// the latest sweep that found anything. Main thread only.
class SpeakerChoices : public QObject {
    Q_OBJECT
public:
    // Without `airplay`, no name is ever taken for ambiguous.
    explicit SpeakerChoices(SonosDiscovery::Coordinator& discovery,
                            AirPlayBrowser* airplay = nullptr, QObject* parent = nullptr);

    // Sweeps the household again, unless a sweep runs or, without `force`, the last one
    // is less than a minute old. `configured` is the chosen speaker, which counts as wired
    // to the optical output whenever it is among the zones.
    void refresh(bool force, const QString& configured);

    // Absent until a sweep has found zones.
    const std::optional<QList<SpeakerChoice>>& choices() const { return m_choices; }
    const QList<ZoneState>& zones() const { return m_zones; }
    const QSet<QString>& opticalCapable() const { return m_opticalCapable; }
    const std::optional<QString>& playingOverOptical() const { return m_playingOverOptical; }
    // Whether two AirPlay receivers carry the chosen speaker's name, the speaker's own among
    // them.
    bool ambiguousAirPlayName() const { return m_ambiguousAirPlayName; }

signals:
    // A sweep found zones and the fields above changed with it.
    void refreshed();

private:
    QFuture<bool> airPlayAmbiguity(const QList<ZoneState>& zones, const QString& configured);
    void adopt(const QList<ZoneState>& zones, const QString& topology, const QString& configured,
               bool ambiguousAirPlayName);

    SonosDiscovery::Coordinator& m_discovery;
    AirPlayBrowser* m_airplay;
    bool m_ambiguousAirPlayName = false;
    std::optional<QList<SpeakerChoice>> m_choices;
    QList<ZoneState> m_zones;
    QSet<QString> m_opticalCapable;
    std::optional<QString> m_playingOverOptical;
    QDateTime m_stamp;
    bool m_inFlight = false;
};
