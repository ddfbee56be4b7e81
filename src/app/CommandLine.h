#pragma once

#include <QString>
#include <QStringList>

#include <optional>

// How this process runs, chosen once from the command line.
enum class RunMode {
    help,        // print the usage and exit
    version,     // print the version and exit
    probe,       // print the probe report and exit; no user interface, no single instance
    hudDemo,     // cycle the volume overlay until ended from outside
    application, // the normal tray application
};

// The command line, read once. Each flag matches only as a whole argument: "--probe=1" and
// "-probe" are not "--probe". The staging flags do not change the run mode; the controller
// and the setup window read them after launch to stage the interface for screenshots.
struct CommandLine {
    RunMode mode = RunMode::application;

    bool demoOnboarding = false; // show the setup window as on a first run
    bool demoSetupAgain = false; // show the setup window 1.0 s and again 2.0 s after launch
    bool demoPanel = false;      // present the panel with its settings open 0.8 s after launch
    bool demoFinish = false;     // finish the setup window 3.5 s after it opens
    // The setup step to stage, from the first "--demo-step=N"; an empty or non-numeric N
    // gives 0. Absent without the flag.
    std::optional<int> demoStep;
    // The key service's socket from "--key-service=PATH" (a private service started by a
    // test, or a development copy); empty for the usual one.
    QString keyServicePath;

    // Arguments after the program path that mean nothing here. They are ignored; the entry
    // may log them.
    QStringList unknownArguments;

    // `arguments` is the whole list, program path first (QCoreApplication::arguments(), or
    // argv before the application object exists).
    static CommandLine parse(const QStringList& arguments);

    // What --help and --version print, in the usual GNU form. The version and the addresses
    // come from the build.
    static QString helpText(const QString& supportAddress, const QString& webAddress);
    static QString versionText(const QString& version);
};
