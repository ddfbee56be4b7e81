#pragma once

// Cycles the volume overlay until the process is ended from outside.
int runHudDemoMode(int argc, char** argv);
