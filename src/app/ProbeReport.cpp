#include "app/ProbeReport.h"

#include "app/KeyContext.h"
#include "support/PlatformWords.h"
#include "support/VisibleText.h"

namespace ProbeReport {
namespace {

constexpr int kNameWidth = 24;

QString yesNo(bool value)
{
    return value ? QStringLiteral("true") : QStringLiteral("false");
}

QString outputLine(const Output& output, const std::optional<QString>& defaultOutput)
{
    QString line = QStringLiteral("  ") + output.name.leftJustified(kNameWidth) +
                   QStringLiteral("  ") + output.transport;
    if (defaultOutput && *defaultOutput == output.name)
        line += QStringLiteral(" ← current");
    return line;
}

QString playerEntry(const Player& player)
{
    return player.name + QStringLiteral(" [") + player.model + QLatin1Char(']');
}

// Each section is made visible line by line, as it leaves this file. Names, models, URIs and
// metadata come from players on the network, output and program names from other processes,
// the settings from a file anyone may have edited; the fixed words hold no control
// character. One pass over every line covers every field, including ones added later.
QStringList visible(QStringList lines)
{
    for (QString& line : lines)
        line = visibleText(line);
    return lines;
}

bool speakerIsVisible(const Facts& facts)
{
    for (const Zone& zone : facts.zones) {
        if (zone.name == facts.settings.speaker)
            return true;
    }
    return false;
}

} // namespace

QStringList head(const Facts& facts)
{
    QStringList lines{QStringLiteral("Velotide probe"), QString()};
    if (facts.otherCopyRunning) {
        lines << QStringLiteral("WARNING: Velotide is running. Its own SSDP sweeps contend")
              << QStringLiteral("with this one, and discovery below may come back empty even")
              << QStringLiteral("though the speakers are fine. Quit the app and run again.")
              << QString();
    }
    lines << QStringLiteral("PERMISSIONS")
          << QString::fromUtf8(platformText(PlatformText::probeInputAccess)) +
                 yesNo(facts.inputAccess)
          << QString::fromUtf8(platformText(PlatformText::probeInputAccessRemark));
    return visible(lines);
}

QStringList audio(const Facts& facts)
{
    QStringList lines{QString(), QStringLiteral("AUDIO OUTPUTS")};
    for (const Output& output : facts.outputs)
        lines << outputLine(output, facts.defaultOutput);
    lines << QStringLiteral("  detected trigger output: ") +
                 facts.detectedTrigger.value_or(QStringLiteral("(none looks external)"));
    lines << QString() << QStringLiteral("WHAT IS MAKING SOUND");
    for (const QString& process : facts.processesOutputting)
        lines << QStringLiteral("  ") + process;
    if (facts.processesOutputting.isEmpty())
        lines << QStringLiteral("  (nothing is playing)");
    return visible(lines);
}

QStringList discovery(const Facts& facts)
{
    QStringList lines{QString(), QStringLiteral("SONOS ZONES (SSDP)")};
    lines << QStringLiteral("  discovery took %1s").arg(facts.discoverySeconds, 0, 'f', 1);
    if (!facts.hidden.isEmpty()) {
        QStringList entries;
        for (const Player& player : facts.hidden)
            entries << playerEntry(player);
        lines << QStringLiteral("  hidden (bonded satellites): ") +
                     entries.join(QStringLiteral(", "));
    }
    if (facts.zones.isEmpty()) {
        lines << QString::fromUtf8(platformText(PlatformText::probeNoZonesSameNetwork))
              << QString::fromUtf8(platformText(PlatformText::probeNoZonesFirewall));
    }
    return visible(lines);
}

QStringList zone(const Zone& zone)
{
    QStringList lines;
    lines << QStringLiteral("  ") + zone.name + QStringLiteral(" — ") + zone.model +
                 QStringLiteral(" at ") + zone.host;
    lines << QStringLiteral("    uid: ") + zone.uid;
    lines << QStringLiteral("    optical socket: ") + yesNo(zone.hasNativeOptical) +
                 QStringLiteral("   airplay id: ") + zone.airplayId.value_or(QStringLiteral("?"));
    if (zone.controlError) {
        lines << QStringLiteral("    control failed: ") + *zone.controlError;
        return visible(lines);
    }
    lines << QStringLiteral("    volume: %1  muted: %2").arg(zone.volume).arg(yesNo(zone.muted));
    lines << QStringLiteral("    uri: ") +
                 (zone.uri.isEmpty() ? QStringLiteral("(idle)") : zone.uri);
    if (!zone.title.isEmpty())
        lines << QStringLiteral("    playing: ") + zone.title + QStringLiteral(" — ") + zone.artist;
    lines << QStringLiteral("    line input active: ") + yesNo(zone.lineInputActive);
    return visible(lines);
}

ArmedState verdict(const Facts& facts)
{
    KeyContext context;
    context.paused = facts.settings.paused;
    context.trusted = facts.inputAccess;
    context.tapEnabled = true;
    context.triggerOutput = facts.settings.triggerOutput;
    context.triggerConfigured = facts.settings.triggerConfigured;
    context.currentOutput = facts.defaultOutput;
    context.speakerConnected = speakerIsVisible(facts);
    return context.evaluate();
}

QStringList settingsAndVerdict(const Facts& facts)
{
    const Settings& settings = facts.settings;
    QStringList lines{QString()};
    const QString source =
        facts.settingsUnreadable
            ? facts.settingsPath.value_or(QString()) +
                  QStringLiteral(" — unreadable, so the defaults below are used")
            : facts.settingsPath.value_or(QStringLiteral("first run — none saved"));
    lines << QStringLiteral("SETTINGS (") + source + QLatin1Char(')');
    lines << QStringLiteral("  speaker: ") +
                 (settings.speaker.isEmpty() ? QStringLiteral("(not chosen)") : settings.speaker);
    lines << QStringLiteral("  route: ") + Settings::routeName(settings.route);
    lines << QStringLiteral("  trigger output: ") + (settings.triggerOutput.isEmpty()
                                                         ? QStringLiteral("(any)")
                                                         : settings.triggerOutput);
    lines << QStringLiteral("  paused: ") + yesNo(settings.paused);

    const ArmedState state = verdict(facts);
    lines << QString();
    lines << QStringLiteral("WOULD THE KEYS BE ARMED?  ") +
                 (state.isArmed() ? QStringLiteral("yes")
                                  : QStringLiteral("no — ") + state.reason());
    lines << QStringLiteral(
        "  (assuming the event tap is healthy; probe mode does not install one)");
    return visible(lines);
}

QStringList render(const Facts& facts)
{
    QStringList lines = head(facts) + audio(facts) + discovery(facts);
    for (const Zone& z : facts.zones)
        lines += zone(z);
    return lines + settingsAndVerdict(facts);
}

} // namespace ProbeReport
