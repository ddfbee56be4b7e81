#pragma once

// Who may talk to the service: the user of the session that is in the foreground on seat0
// (the local screen and keyboard), and root. logind keeps that user in its seat file
// (/run/systemd/seats/seat0, line "ACTIVE_UID=1000"); reading the file needs no D-Bus and no
// library. A user logged in remotely, or one whose session is in the background after a
// switch of user, is refused: the keys typed at the seat are not theirs. Without logind
// (no seat file) only root is accepted.

#include "keyservice/Protocol.h"

#include <optional>
#include <string>
#include <string_view>
#include <sys/types.h>

namespace keyd {

inline constexpr const char* kSeatFile = "/run/systemd/seats/seat0";

// The ACTIVE_UID of a logind seat file's text, if it has one.
std::optional<uid_t> activeUidOf(std::string_view seatFileText);
std::optional<uid_t> readActiveUid(const std::string& seatFile);

bool isAllowed(uid_t peer, std::optional<uid_t> activeUid);

// What a new connection gets. `current` is the uid of the client already connected, if any;
// a connected client whose user is no longer allowed gives way to the newcomer.
HelloStatus admissionOf(uid_t peer, std::optional<uid_t> current, std::optional<uid_t> activeUid);

} // namespace keyd
