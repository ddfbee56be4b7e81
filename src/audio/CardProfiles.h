#pragma once

#include <QHash>
#include <QList>
#include <QString>

// What the sound server tells about one card that matters for the outputs its other
// profiles would give: an onboard card plays either analog or S/PDIF, and while its analog
// profile is active the S/PDIF output exists only as a profile, not as a sink.
struct CardFacts {
    struct Profile {
        QString name; // "output:iec958-stereo+input:analog-stereo"
        QString description;
        quint32 sinks = 0;
        quint32 priority = 0;
        bool available = true;
    };

    QHash<QString, QString> properties; // the card's property list (device.description, ...)
    QString activeProfile;
    QList<Profile> profiles;
};

// An output that choosing `profile` would make: the sink of output mapping `mapping`
// ("iec958-stereo"), named `name` as the sink will be named once the profile is active.
struct ProfileOutput {
    QString profile;
    QString mapping;
    QString name;

    bool operator==(const ProfileOutput&) const = default;
};

// The output mapping of a profile name, empty for a profile without output.
QString outputMapping(const QString& profileName);

// The S/PDIF outputs the card would have under a profile that is not active, one per
// output mapping, each switched to through the most preferred available profile that has
// it, most preferred first. A sink takes its name from the card's description and its mapping's
// description, the way PulseAudio and PipeWire name the sinks of ALSA cards.
QList<ProfileOutput> inactiveSpdifOutputs(const CardFacts& card);
