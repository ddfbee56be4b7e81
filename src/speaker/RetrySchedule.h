#pragma once

#include <chrono>

// The waits of the speaker supervision, kept apart from the timers so that the back-off
// can be checked without waiting minutes for it.
struct RetrySchedule {
    using Duration = std::chrono::milliseconds;

    Duration healthInterval = std::chrono::seconds(5); // between checks while connected
    Duration idleInterval = std::chrono::seconds(60);  // while no speaker is chosen
    Duration firstBackoff = std::chrono::seconds(5);   // back-off after a success
    Duration quickRetry = std::chrono::seconds(10);    // retry soon after a user action
    Duration maxBackoff = std::chrono::seconds(120);
    int checksPerGroupRefresh = 6; // group membership is re-read every half minute
    double sweepSeconds = 3.0;     // how long a connect listens for zone players

    // The wait after a failed connect: short when the failure follows a fresh request to
    // connect (a new speaker picked, a send that just failed), else twice the previous
    // back-off, never above the maximum. 10, 20, 40, 80, 120, 120 ... seconds by default.
    Duration nextBackoff(Duration previous, bool quick) const
    {
        if (quick)
            return std::min(quickRetry, maxBackoff);
        return std::min(previous * 2, maxBackoff);
    }

    // Everything scaled down by `factor`, for tests of the supervision that must not sleep.
    RetrySchedule scaledDown(int factor) const
    {
        RetrySchedule s = *this;
        s.healthInterval /= factor;
        s.idleInterval /= factor;
        s.firstBackoff /= factor;
        s.quickRetry /= factor;
        s.maxBackoff /= factor;
        return s;
    }
};
