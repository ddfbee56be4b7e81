#include "keyd/Log.h"

#include <cstdio>

namespace keyd {

void logLine(const std::string& message)
{
    std::fprintf(stderr, "velotide-keyd: %s\n", message.c_str());
    std::fflush(stderr);
}

} // namespace keyd
