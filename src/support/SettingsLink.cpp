#include "support/SettingsLink.h"

namespace {

QUrl helpSection(const char* anchor)
{
    QUrl url(QStringLiteral("https://brindlewerk.com/velotide/help/linux"));
    url.setFragment(QString::fromLatin1(anchor));
    return url;
}

QUrl helpPageFor(SettingsPane pane)
{
    switch (pane) {
    case SettingsPane::inputAccess:
        return helpSection("input-access");
    case SettingsPane::sound:
        return helpSection("sound");
    case SettingsPane::network:
        return helpSection("network");
    case SettingsPane::loginItems:
        return helpSection("open-at-login");
    }
    return helpSection("");
}

// GNOME's control centre has no page for input devices grabbed by a service, nor for
// autostart entries.
QStringList gnomeArguments(SettingsPane pane)
{
    switch (pane) {
    case SettingsPane::sound:
        return {QStringLiteral("sound")};
    case SettingsPane::network:
        return {QStringLiteral("network")};
    case SettingsPane::inputAccess:
    case SettingsPane::loginItems:
        break;
    }
    return {};
}

QStringList kdeArguments(SettingsPane pane)
{
    switch (pane) {
    case SettingsPane::sound:
        return {QStringLiteral("kcm_pulseaudio")};
    case SettingsPane::network:
        return {QStringLiteral("kcm_networkmanagement")};
    case SettingsPane::loginItems:
        return {QStringLiteral("kcm_autostart")};
    case SettingsPane::inputAccess:
        break;
    }
    return {};
}

} // namespace

Desktop desktopFromXdgCurrentDesktop(const QString& value)
{
    const QStringList names = value.split(QLatin1Char(':'), Qt::SkipEmptyParts);
    for (const QString& name : names) {
        if (name.compare(QLatin1String("GNOME"), Qt::CaseInsensitive) == 0)
            return Desktop::gnome;
        if (name.compare(QLatin1String("KDE"), Qt::CaseInsensitive) == 0)
            return Desktop::kde;
    }
    return Desktop::other;
}

SettingsLink settingsLink(SettingsPane pane, Desktop desktop)
{
    SettingsLink link;
    link.helpPage = helpPageFor(pane);
    if (desktop == Desktop::gnome)
        link.arguments = gnomeArguments(pane);
    else if (desktop == Desktop::kde)
        link.arguments = kdeArguments(pane);
    if (!link.arguments.isEmpty()) {
        link.program = desktop == Desktop::gnome ? QStringLiteral("gnome-control-center")
                                                 : QStringLiteral("systemsettings");
    }
    return link;
}
