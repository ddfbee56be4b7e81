#include "keyd/ActiveSession.h"

#include <charconv>
#include <fstream>
#include <sstream>

namespace keyd {

std::optional<uid_t> activeUidOf(std::string_view text)
{
    constexpr std::string_view key = "ACTIVE_UID=";
    while (!text.empty()) {
        auto end = text.find('\n');
        std::string_view line = text.substr(0, end);
        text = end == std::string_view::npos ? std::string_view{} : text.substr(end + 1);
        if (!line.starts_with(key))
            continue;
        line.remove_prefix(key.size());
        uid_t uid = 0;
        auto [rest, error] = std::from_chars(line.data(), line.data() + line.size(), uid);
        if (error != std::errc{} || rest != line.data() + line.size())
            return std::nullopt;
        return uid;
    }
    return std::nullopt;
}

std::optional<uid_t> readActiveUid(const std::string& seatFile)
{
    std::ifstream in(seatFile);
    if (!in)
        return std::nullopt;
    std::ostringstream text;
    text << in.rdbuf();
    return activeUidOf(text.str());
}

bool isAllowed(uid_t peer, std::optional<uid_t> activeUid)
{
    return peer == 0 || (activeUid && *activeUid == peer);
}

HelloStatus admissionOf(uid_t peer, std::optional<uid_t> current, std::optional<uid_t> activeUid)
{
    if (!isAllowed(peer, activeUid))
        return HelloStatus::notActiveSession;
    if (current && isAllowed(*current, activeUid))
        return HelloStatus::busy;
    return HelloStatus::accepted;
}

} // namespace keyd
