#pragma once

struct CommandLine;

// Prints the probe report on standard output and returns the exit status (0). Runs on a
// QCoreApplication of its own; claims no single instance and writes nothing.
int runProbeMode(int argc, char** argv, const CommandLine& commandLine);
