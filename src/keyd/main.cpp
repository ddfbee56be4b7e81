// velotide-keyd: gives the desktop's volume keys to the Velotide application of the active
// session while it asks for them, and passes every other key on untouched.

#include "keyd/Log.h"
#include "keyd/Service.h"

#include <cstdio>
#include <string_view>

namespace {

void printUsage()
{
    std::printf("usage: velotide-keyd [--socket=PATH] [--seat-file=PATH]\n"
                "  --socket=PATH     listen here (default %s)\n"
                "  --seat-file=PATH  logind's seat file naming the active user (default %s)\n",
                keyd::kDefaultSocketPath, keyd::kSeatFile);
}

} // namespace

int main(int argc, char** argv)
{
    keyd::ServiceOptions options;
    for (int i = 1; i < argc; ++i) {
        std::string_view arg = argv[i];
        if (arg.starts_with("--socket="))
            options.socketPath = arg.substr(9);
        else if (arg.starts_with("--seat-file="))
            options.seatFile = arg.substr(12);
        else {
            printUsage();
            return arg == "--help" ? 0 : 2;
        }
    }
    auto service = keyd::Service::start(options);
    if (!service) {
        keyd::logLine(service.error() + " — stopping");
        return 1;
    }
    return service.value()->run();
}
