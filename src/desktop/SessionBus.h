#pragma once

#include <QFileInfo>
#include <QString>
#include <QtGlobal>

// Only an existing session bus is used: with none, libdbus would start one through the X
// server and make this thread wait for it.
inline bool hasSessionBus()
{
    if (!qEnvironmentVariableIsEmpty("DBUS_SESSION_BUS_ADDRESS"))
        return true;
    const QString runtime = qEnvironmentVariable("XDG_RUNTIME_DIR");
    return !runtime.isEmpty() && QFileInfo::exists(runtime + QStringLiteral("/bus"));
}
