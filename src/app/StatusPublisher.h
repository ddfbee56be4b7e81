#pragma once

#include "ui/panel/PanelSnapshot.h"

#include <QObject>
#include <QString>

#include <optional>

// Hands the panel's snapshots out, one at a time. Every request for a snapshot is a new
// generation. A request made before the build of a snapshot begins is answered by that build;
// a snapshot whose build began before the newest request is dropped when it comes back, and
// built once more, so that what is shown is never older than what was asked for.
class StatusPublisher : public QObject {
    Q_OBJECT
public:
    using QObject::QObject;

    void request();
    // A periodic look again (the open panel's, once a second): a build under way answers it,
    // as it reads things as they are. Were it a request, a build slower than the period
    // would be overtaken every time and the panel would never be shown anything.
    void refresh();
    // A snapshot built for the generation buildRequested() named.
    void publish(const PanelSnapshot& snapshot);

    quint64 generation() const { return m_generation; }
    // The last snapshot published, without its artwork bytes.
    const std::optional<PanelSnapshot>& last() const { return m_last; }

signals:
    // Build the snapshot as things are now, stamp it with `generation` and publish() it.
    void buildRequested(quint64 generation);
    void published(const PanelSnapshot& snapshot);

private:
    void build();

    quint64 m_generation = 0;
    bool m_inFlight = false;
    std::optional<PanelSnapshot> m_last;
};
