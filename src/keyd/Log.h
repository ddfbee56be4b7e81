#pragma once

#include <string>

namespace keyd {

// One line to standard error; the service runs under systemd, whose journal adds the time
// and the unit's name.
void logLine(const std::string& message);

} // namespace keyd
