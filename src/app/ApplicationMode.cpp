#include "app/ApplicationMode.h"

#include "app/CommandLine.h"

#include <cstdio>

int runApplicationMode(int, char**, const CommandLine&)
{
    std::fputs("velotide: the desktop application is not part of this build yet; try --probe or "
               "--hud-demo\n",
               stderr);
    return 2;
}
