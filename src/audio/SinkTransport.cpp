#include "audio/SinkTransport.h"

#include <QRegularExpression>

#include <algorithm>

namespace {

bool contains(const QString& text, QLatin1StringView part)
{
    return text.contains(part, Qt::CaseInsensitive);
}

// An HDMI-style sink whose ALSA name says it is a DisplayPort connector ("DP", "DP-1",
// "DisplayPort"); the common "HDMI/DP" jack name says nothing either way.
bool namesDisplayPort(const QString& alsaName)
{
    static const QRegularExpression dp(QStringLiteral(R"(\bDP\b|DisplayPort)"));
    return !alsaName.contains(QLatin1StringView("HDMI"), Qt::CaseInsensitive) &&
           dp.match(alsaName).hasMatch();
}

// PipeWire's AirPlay sinks say so only through their own "raop.*" properties (the receiver's
// address and name); they carry no device.api and call themselves virtual nodes.
bool hasRaopProperties(const QHash<QString, QString>& properties)
{
    const auto keys = properties.keys();
    return std::any_of(keys.begin(), keys.end(), [](const QString& key) {
        return key.startsWith(QLatin1StringView("raop."));
    });
}

} // namespace

QString transportWord(const SinkFacts& sink)
{
    const auto property = [&](const char* key) {
        return sink.properties.value(QString::fromLatin1(key));
    };
    const QString api = property("device.api");
    const QString bus = property("device.bus");
    const QString profile = property("device.profile.name");
    const QString deviceClass = property("device.class");

    if (api == QLatin1StringView("raop") || contains(sink.driver, QLatin1StringView("raop")) ||
        hasRaopProperties(sink.properties))
        return QStringLiteral("airplay");
    if (bus == QLatin1StringView("bluetooth") || api.startsWith(QLatin1StringView("bluez")))
        return QStringLiteral("bluetooth");
    if (bus == QLatin1StringView("usb"))
        return QStringLiteral("usb");
    if (contains(profile, QLatin1StringView("iec958")) ||
        contains(sink.activePort, QLatin1StringView("iec958")))
        return QStringLiteral("spdif");
    if (contains(profile, QLatin1StringView("hdmi")) ||
        contains(sink.activePort, QLatin1StringView("hdmi")))
        return namesDisplayPort(property("alsa.name")) ? QStringLiteral("displayport")
                                                       : QStringLiteral("hdmi");
    if (bus == QLatin1StringView("thunderbolt"))
        return QStringLiteral("thunderbolt");
    if (contains(sink.driver, QLatin1StringView("combine")))
        return QStringLiteral("aggregate");
    // Null sinks say "abstract", filter and remap sinks "filter"; PipeWire marks its own.
    if (deviceClass == QLatin1StringView("abstract") ||
        deviceClass == QLatin1StringView("filter") ||
        property("node.virtual") == QLatin1StringView("true"))
        return QStringLiteral("virtual");
    if (bus == QLatin1StringView("pci") || bus == QLatin1StringView("platform"))
        return QStringLiteral("built-in");
    return QStringLiteral("other");
}
