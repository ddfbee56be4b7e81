#pragma once

#include <QString>

// What kind of computer and system a problem report comes from. Each reads a small file or
// the environment; call them off the main thread.
namespace SystemFacts {

// The firmware's product name, e.g. "MacBookPro15,1" or "HP EliteBook 840 G5", with the
// product version where the name alone says little (a placeholder, or a bare type code as
// some makers give); "unknown" when nothing can be read. `folder` holds the DMI files.
QString hardwareModel(const QString& folder = QStringLiteral("/sys/class/dmi/id"));

// PRETTY_NAME of os-release, e.g. "Debian GNU/Linux 12 (bookworm)"; Qt's guess without it.
QString distribution(const QString& osRelease = QStringLiteral("/etc/os-release"));

// The desktop and the session type, e.g. "GNOME (wayland)"; "unknown" for what is unset.
QString desktop();

} // namespace SystemFacts
