#pragma once

#include <QString>

// Every log line of key capture in one place. The words that name the input permission are
// this platform's ("input access": what the key service or the X server grants), the rest of
// each sentence is the product's own.
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
    return QStringLiteral("Input access granted");
}
inline QString accessRevoked()
{
    return QStringLiteral("Input access was revoked — keys released");
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
