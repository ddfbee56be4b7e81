#include "app/StatusPublisher.h"

#include <QTimer>

void StatusPublisher::request()
{
    ++m_generation;
    if (m_inFlight)
        return;
    m_inFlight = true;
    // Built on the next turn of the event loop, so that a burst of requests costs one build.
    QTimer::singleShot(0, this, &StatusPublisher::build);
}

void StatusPublisher::refresh()
{
    if (!m_inFlight)
        request();
}

void StatusPublisher::build()
{
    emit buildRequested(m_generation);
}

void StatusPublisher::publish(const PanelSnapshot& snapshot)
{
    if (snapshot.generation < m_generation)
        return build();
    m_inFlight = false;
    m_last = snapshot;
    m_last->artwork.reset(); // kept for comparison and diagnostics, not to draw
    emit published(snapshot);
}
