#pragma once

#include <optional>

// When the overlay is visible and how opaque, as a function of the calls made to it and of
// time. Times are seconds on a monotonic clock, passed in by the caller, so the same logic
// runs under the widget's timer and under a test's hand-made clock.
//
// hidden:  alpha 0, nothing due.
// holding: alpha 1 until the hold ends (the one hide deadline, moved by every show).
// fading:  alpha falls by 1/15 per frame of 1/60 s, so the fade takes 0.25 s.
class HudTimeline {
public:
    enum class State { Hidden, Holding, Fading };

    static constexpr double holdSeconds = 1.2;
    static constexpr double fadeSeconds = 0.25;
    static constexpr double frameInterval = 1.0 / 60;

    // Full opacity at once, held for `hold` (default holdSeconds) from `now`. Answers
    // whether the overlay should be placed again first: it was hidden or fading, so the
    // primary screen may have changed while it was away. A visible overlay is not moved.
    bool show(double now, std::optional<double> hold = std::nullopt);
    // Ends the hold early: a holding overlay starts fading at `now`; a hidden or already
    // fading one is left alone.
    void dismiss(double now);
    // Runs whatever has come due by `now`: the end of the hold, then fade frames. A call
    // before anything is due (a timer that fired early, or one whose deadline a later show
    // moved) does nothing.
    void advance(double now);
    // When advance() next has something to do; none when hidden.
    std::optional<double> nextWake() const;

    // With reduced motion the hold ends in one step instead of a fade.
    void setReduceMotion(bool on) { m_reduceMotion = on; }

    double alpha() const { return m_alpha; }
    State state() const;

private:
    void startFade(double now);
    void fadeStep();

    bool m_reduceMotion = false;
    double m_alpha = 0;
    std::optional<double> m_holdDeadline;
    std::optional<double> m_nextFrame;
};
