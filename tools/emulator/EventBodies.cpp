#include "EventBodies.h"

#include "SoapEnvelope.h"
#include "TopologyXml.h"
#include "ZonePlayerActions.h"

namespace emulator {

namespace {

QString attribute(const QString& text)
{
    return escapeXml(text);
}

// <Name val="value"/>, and with a channel for the per-channel variables.
QString variable(const char* name, const QString& value, const char* channel = nullptr)
{
    QString out = u'<' + QLatin1String(name);
    if (channel)
        out += QStringLiteral(" channel=\"%1\"").arg(QLatin1String(channel));
    return out + QStringLiteral(" val=\"%1\"/>").arg(attribute(value));
}

QString flag(bool on)
{
    return on ? QStringLiteral("1") : QStringLiteral("0");
}

// The LastChange document of one instance (0), as the metadata schema of the service has it.
QString lastChange(const char* schema, const QString& variables)
{
    return QStringLiteral("<Event xmlns=\"urn:schemas-upnp-org:metadata-1-0/%1/\">"
                          "<InstanceID val=\"0\">%2</InstanceID></Event>")
        .arg(QLatin1String(schema), variables);
}

QByteArray propertySet(const QList<std::pair<QString, QString>>& properties)
{
    QString out = QStringLiteral(
        "<?xml version=\"1.0\"?><e:propertyset xmlns:e=\"urn:schemas-upnp-org:event-1-0\">");
    for (const auto& [name, value] : properties)
        out += QStringLiteral("<e:property><%1>%2</%1></e:property>").arg(name, escapeXml(value));
    return (out + QStringLiteral("</e:propertyset>")).toUtf8();
}

QString renderingVariables(const Player& player)
{
    QString out = variable("Volume", QString::number(player.volume), "Master") +
                  variable("Mute", flag(player.muted), "Master");
    for (auto eq = player.eq.begin(); eq != player.eq.end(); ++eq)
        out += variable(eq.key().toLatin1().constData(), QString::number(eq.value()));
    return out;
}

QString transportVariables(Household& household, const Player& player)
{
    // Members report their coordinator's transport, as they do when asked.
    const Player* source = household.playerByUid(household.coordinatorOf(player.uid));
    const Player& p = source ? *source : player;
    return variable("TransportState", p.transportState) + variable("CurrentTrackURI", p.track.uri);
}

} // namespace

QString serviceAtEventPath(const QByteArray& path)
{
    if (!path.endsWith("/Event"))
        return {};
    QByteArray control = path;
    control.chop(int(qstrlen("Event")));
    return serviceAtControlPath(control + "Control");
}

std::optional<QByteArray> eventBody(Household& household, const QString& host,
                                    const QString& service, quint16 port)
{
    Player* player = household.player(host);
    if (!player)
        return std::nullopt;
    if (service == ServiceType::renderingControl)
        return propertySet(
            {{QStringLiteral("LastChange"), lastChange("RCS", renderingVariables(*player))}});
    if (service == ServiceType::avTransport)
        return propertySet({{QStringLiteral("LastChange"),
                             lastChange("AVT", transportVariables(household, *player))}});
    if (service == ServiceType::groupRenderingControl) {
        const GroupLevel level = groupLevel(household, player->uid);
        return propertySet({{QStringLiteral("GroupVolume"), QString::number(level.volume)},
                            {QStringLiteral("GroupMute"), flag(level.muted)}});
    }
    if (service == ServiceType::zoneGroupTopology)
        return propertySet(
            {{QStringLiteral("ZoneGroupState"), zoneGroupStateXml(household, port)}});
    return std::nullopt;
}

} // namespace emulator
