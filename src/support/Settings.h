#pragma once

#include <QByteArray>
#include <QString>

// The one persisted record of the user's choices, kept in
// $XDG_CONFIG_HOME/velotide/settings.json. A plain value: the application controller owns
// a copy and saves the whole of it after every change. load() and save() touch only the
// file they are given, its folder and the copies kept beside it, so they may run on any
// thread.
struct Settings {
    // How the computer's audio reaches the chosen speaker. Optical is the default
    // wherever a route is missing or unknown.
    enum class Route { Optical, Airplay, Network };

    struct Loaded;

    QString speaker;
    Route route = Route::Optical;
    QString triggerOutput;
    bool triggerConfigured = false;
    QString opticalOutput;
    QString airplayOutput;
    bool paused = false;
    bool loginItemOffered = false;
    QString lastKnownHost;
    bool automaticUpdateChecks = true;

    bool operator==(const Settings&) const = default;

    // The folder and the file, under $XDG_CONFIG_HOME (default ~/.config).
    static QString directory();
    static QString filePath();

    // Never fails and never waits: only a regular file of at most 1 MiB is read (through a
    // link too). A missing or unreadable file is a first run; an undecodable or larger one
    // is set aside as settings.json.corrupt-<stamp> and is a first run too. Keys of the
    // wrong type take their defaults. Every problem but a missing file is logged.
    static Loaded load();
    static Loaded load(const QString& path);
    // The same reading for a caller that must change nothing on disk (the probe): an
    // undecodable file is a first run but stays where it is.
    static Loaded peek(const QString& path);

    // Writes the whole record atomically (the old file survives any failure) with mode
    // 0600, in a folder of mode 0700, keeping keys it does not know from the old file. An
    // old file that did not decode cleanly is first copied to settings.json.backup-<stamp>.
    // Nothing is written over or through anything but a regular file. False when it could
    // not be written; the reason is already logged.
    bool save() const;
    bool save(const QString& path) const;

    // Records an output name in the per-route memory; the network route shares the
    // optical slot. An empty name changes nothing.
    void rememberTrigger(const QString& outputName, Route forRoute);

    // Pretty-printed JSON with all ten keys, sorted.
    QByteArray toJson() const;

    static QString routeName(Route route);

private:
    enum class SetAside { no, yes };
    static Loaded decodeFile(const QString& path, SetAside setAsideBadFile);
};

struct Settings::Loaded {
    Settings settings;
    bool isFirstRun = true;
};
