#include "keys/InactiveTap.h"

bool InactiveTap::install()
{
    reportHealth();
    return false;
}

void InactiveTap::teardown()
{
    reportHealth();
}
