#pragma once

#include "support/PlatformWords.h"

#include <QString>

// Every log line of key capture in one place. The lines that name the input permission come
// from the program's table of platform words, so that they are reviewed with the others.
namespace TapTexts {

inline QString installed()
{
    return QStringLiteral("Volume keys now control the Sonos");
}
inline QString reenabledAfterDisabled()
{
    return QStringLiteral("event tap re-enabled after being disabled by the system");
}
inline QString reconnectedAfterDrop()
{
    return QStringLiteral("event tap reconnected after the key service dropped it");
}
inline QString foundDisabled()
{
    return QStringLiteral("event tap found disabled — re-enabling");
}
inline QString rebuilding()
{
    return QStringLiteral("re-enable failed — rebuilding the tap");
}
inline QString accessGranted()
{
    return QString::fromUtf8(platformText(PlatformText::inputAccessGranted));
}
inline QString accessRevoked()
{
    return QString::fromUtf8(platformText(PlatformText::inputAccessRevoked));
}
inline QString grabHeldElsewhere()
{
    return QStringLiteral("volume keys are grabbed by another program — event tap inactive");
}
inline QString serviceRefused(const QString& why)
{
    return QStringLiteral("key service refused this session (%1) — keys stay with the desktop")
        .arg(why);
}
inline QString serviceVersion(int theirs, int ours)
{
    return QStringLiteral(
               "key service speaks protocol version %1, not %2 — keys stay with the desktop")
        .arg(theirs)
        .arg(ours);
}

} // namespace TapTexts
