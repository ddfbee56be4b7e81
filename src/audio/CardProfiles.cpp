#include "audio/CardProfiles.h"

#include "audio/SinkTransport.h"

#include <algorithm>
#include <map>
#include <optional>

namespace {

// A profile's description names its output mapping as "<mapping> Output", followed by
// " + <mapping> Input" when it also records; a few well-known pairs have names of their own
// ("Digital Stereo Duplex (IEC958)"), which say nothing about the mapping alone.
std::optional<QString> mappingDescription(const QString& profileDescription)
{
    const QLatin1StringView suffix(" Output");
    const QString outputPart = profileDescription.section(QLatin1StringView(" + "), 0, 0);
    if (!outputPart.endsWith(suffix))
        return std::nullopt;
    return outputPart.chopped(suffix.size());
}

} // namespace

QString outputMapping(const QString& profileName)
{
    const QLatin1StringView prefix("output:");
    if (!profileName.startsWith(prefix))
        return {};
    return profileName.mid(prefix.size()).section(QLatin1Char('+'), 0, 0);
}

QList<ProfileOutput> inactiveSpdifOutputs(const CardFacts& card)
{
    const QString active = outputMapping(card.activeProfile);
    struct Choice {
        const CardFacts::Profile* best = nullptr;
        std::optional<QString> description;
    };
    std::map<QString, Choice> byMapping;
    QStringList order;
    for (const CardFacts::Profile& profile : card.profiles) {
        const QString mapping = outputMapping(profile.name);
        if (mapping.isEmpty() || mapping == active || !profile.available || profile.sinks == 0)
            continue;
        SinkFacts sink{card.properties, {}, {}};
        sink.properties.insert(QStringLiteral("device.profile.name"), mapping);
        if (transportWord(sink) != QLatin1StringView("spdif"))
            continue;
        Choice& choice = byMapping[mapping];
        if (!choice.best) {
            order << mapping;
            choice.best = &profile;
        } else if (profile.priority > choice.best->priority) {
            choice.best = &profile;
        }
        if (!choice.description)
            choice.description = mappingDescription(profile.description);
    }

    const QString cardName = card.properties.value(QStringLiteral("device.description"));
    // The card's own preference orders them, so a plain stereo output comes before an
    // encoded surround one.
    std::stable_sort(order.begin(), order.end(), [&](const QString& a, const QString& b) {
        return byMapping[a].best->priority > byMapping[b].best->priority;
    });
    QList<ProfileOutput> outputs;
    for (const QString& mapping : order) {
        const Choice& choice = byMapping[mapping];
        const QString described = choice.description.value_or(choice.best->description);
        const QString name = cardName.isEmpty() ? described : cardName + u' ' + described;
        outputs.append({choice.best->name, mapping, name});
    }
    return outputs;
}
