#pragma once

struct CommandLine;

// The normal tray application. Returns the process exit status.
int runApplicationMode(int argc, char** argv, const CommandLine& commandLine);
