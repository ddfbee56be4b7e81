#pragma once

// Refused connections are logged sparingly: anyone on the machine may connect, and a line
// per refusal would let another user fill the journal and keep the service writing instead
// of passing keys on. The first refusal is logged at once; later ones within the interval
// are only counted, and the count goes out with the next line.

#include "keyservice/Protocol.h"

#include <chrono>
#include <optional>
#include <string>
#include <sys/types.h>

namespace keyd {

class RefusalLog {
public:
    using Clock = std::chrono::steady_clock;

    explicit RefusalLog(Clock::duration interval = std::chrono::seconds(10))
        : m_interval(interval)
    {
    }

    // A refusal at `now`: the line to log, if one is due.
    std::optional<std::string> refused(uid_t uid, HelloStatus status, Clock::time_point now);
    // The count of refusals not yet logged, once the interval since the last line has passed.
    std::optional<std::string> flush(Clock::time_point now);

private:
    Clock::duration m_interval;
    std::optional<Clock::time_point> m_lastLine;
    unsigned long m_unlogged = 0;
};

} // namespace keyd
