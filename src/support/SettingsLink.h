#pragma once

#include <QString>
#include <QStringList>
#include <QUrl>

// Where the program sends the user to change something only the desktop can change. Each
// desktop that has a settings program of its own gets its page there; everywhere else, and
// whenever that program is missing, the user gets the section of the project's help page.
// These are values only: opening them is the caller's business.

enum class SettingsPane { inputAccess, sound, network, loginItems };

enum class Desktop { gnome, kde, other };

struct SettingsLink {
    QString program; // empty when this desktop has no page for the pane
    QStringList arguments;
    QUrl helpPage; // always set: the fallback when there is no program, or it is not installed
};

// Reads the colon-separated desktop names of XDG_CURRENT_DESKTOP ("ubuntu:GNOME", "KDE").
Desktop desktopFromXdgCurrentDesktop(const QString& value);

SettingsLink settingsLink(SettingsPane pane, Desktop desktop);
