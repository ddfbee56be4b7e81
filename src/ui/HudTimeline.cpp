#include "ui/HudTimeline.h"

namespace {
// Fifteen subtractions of 1/15 leave a rounding residue just above zero.
constexpr double alphaEpsilon = 1e-9;
} // namespace

bool HudTimeline::show(double now, std::optional<double> hold)
{
    const bool place = state() != State::Holding;
    m_nextFrame.reset();
    m_alpha = 1;
    m_holdDeadline = now + hold.value_or(holdSeconds);
    return place;
}

void HudTimeline::dismiss(double now)
{
    if (state() != State::Holding)
        return;
    m_holdDeadline.reset();
    startFade(now);
}

void HudTimeline::advance(double now)
{
    if (m_holdDeadline && now >= *m_holdDeadline) {
        const double holdEnded = *m_holdDeadline;
        m_holdDeadline.reset();
        startFade(holdEnded);
    }
    while (m_nextFrame && now >= *m_nextFrame) {
        const double frame = *m_nextFrame;
        fadeStep();
        if (m_nextFrame)
            m_nextFrame = frame + frameInterval;
    }
}

std::optional<double> HudTimeline::nextWake() const
{
    if (m_holdDeadline)
        return m_holdDeadline;
    return m_nextFrame;
}

HudTimeline::State HudTimeline::state() const
{
    if (m_nextFrame)
        return State::Fading;
    return m_alpha > 0 ? State::Holding : State::Hidden;
}

void HudTimeline::startFade(double now)
{
    if (m_reduceMotion) {
        m_alpha = 0;
        return;
    }
    m_nextFrame = now + frameInterval;
}

void HudTimeline::fadeStep()
{
    m_alpha -= frameInterval / fadeSeconds;
    if (m_alpha <= alphaEpsilon) {
        m_alpha = 0;
        m_nextFrame.reset();
    }
}
