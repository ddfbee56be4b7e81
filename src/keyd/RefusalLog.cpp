#include "keyd/RefusalLog.h"

namespace keyd {

namespace {

std::string countLine(unsigned long count)
{
    return "refused " + std::to_string(count) + " more " + (count == 1 ? "client" : "clients") +
           " since the last line";
}

} // namespace

std::optional<std::string> RefusalLog::refused(uid_t uid, HelloStatus status, Clock::time_point now)
{
    if (m_lastLine && now - *m_lastLine < m_interval) {
        ++m_unlogged;
        return std::nullopt;
    }
    std::string line = "refused a client of uid " + std::to_string(uid) +
                       (status == HelloStatus::busy ? " — another client is connected"
                                                    : " — not the active session's user");
    if (m_unlogged > 0)
        line += " (" + countLine(m_unlogged) + ")";
    m_unlogged = 0;
    m_lastLine = now;
    return line;
}

std::optional<std::string> RefusalLog::flush(Clock::time_point now)
{
    if (m_unlogged == 0 || (m_lastLine && now - *m_lastLine < m_interval))
        return std::nullopt;
    const std::string line = countLine(m_unlogged);
    m_unlogged = 0;
    m_lastLine = now;
    return line;
}

} // namespace keyd
