#include "TopologyXml.h"

#include "SoapEnvelope.h"

namespace emulator {
namespace {

QString attr(const QString& name, const QString& value)
{
    return QStringLiteral(" %1=\"%2\"").arg(name, escapeXml(value));
}

QString writtenUid(const Household& h, const QString& uid)
{
    const Player* p = h.playerByUid(uid);
    return p && p->quirks.lowerCaseUid ? uid.toLower() : uid;
}

// The attributes every member and satellite carries, in the order players write them.
QString commonAttributes(const Household& h, const Player& p, quint16 port)
{
    QString a = attr(QStringLiteral("UUID"), writtenUid(h, p.uid));
    a += attr(QStringLiteral("Location"),
              QStringLiteral("http://%1:%2/xml/device_description.xml").arg(p.host).arg(port));
    a += attr(QStringLiteral("ZoneName"), p.room);
    a += attr(QStringLiteral("Icon"), QString());
    a += attr(QStringLiteral("Configuration"), QStringLiteral("1"));
    if (p.invisible)
        a += attr(QStringLiteral("Invisible"), QStringLiteral("1"));
    if (p.zoneBridge)
        a += attr(QStringLiteral("IsZoneBridge"), QStringLiteral("1"));
    a += attr(QStringLiteral("SoftwareVersion"), p.softwareVersion);
    a += attr(QStringLiteral("SWGen"), QStringLiteral("2"));
    a += attr(QStringLiteral("MinCompatibleVersion"), QStringLiteral("78.0-00000"));
    a += attr(QStringLiteral("LegacyCompatibleVersion"), QStringLiteral("58.0-00000"));
    return a;
}

QString tailAttributes(const Player& p)
{
    QString a = attr(QStringLiteral("BootSeq"), QString::number(p.bootSeq));
    a += attr(QStringLiteral("TVConfigurationError"), QStringLiteral("0"));
    a += attr(QStringLiteral("HdmiCecAvailable"), QStringLiteral("0"));
    a += attr(QStringLiteral("WirelessMode"), QStringLiteral("0"));
    a += attr(QStringLiteral("WirelessLeafOnly"), QStringLiteral("0"));
    a += attr(QStringLiteral("ChannelFreq"), QStringLiteral("2437"));
    a += attr(QStringLiteral("BehindWifiExtender"), QStringLiteral("0"));
    a += attr(QStringLiteral("WifiEnabled"), QStringLiteral("1"));
    a += attr(QStringLiteral("EthLink"), QStringLiteral("0"));
    a += attr(QStringLiteral("Orientation"), QStringLiteral("0"));
    a += attr(QStringLiteral("RoomCalibrationState"), QStringLiteral("4"));
    a += attr(QStringLiteral("SecureRegState"), QStringLiteral("3"));
    a += attr(QStringLiteral("VoiceConfigState"), QStringLiteral("0"));
    a += attr(QStringLiteral("MicEnabled"), QStringLiteral("0"));
    a += attr(QStringLiteral("AirPlayEnabled"), QStringLiteral("1"));
    a += attr(QStringLiteral("IdleState"), QStringLiteral("1"));
    a += attr(QStringLiteral("MoreInfo"), QString());
    a += attr(QStringLiteral("SSLPort"), QStringLiteral("1443"));
    a += attr(QStringLiteral("HHSSLPort"), QStringLiteral("1843"));
    return a;
}

// "RINCON_A:LF,RF;RINCON_SUB:SW;RINCON_L:LR;RINCON_R:RR" for a home-theatre primary.
QString satelliteChannelMap(const Household& h, const Player& primary)
{
    QStringList parts{primary.uid + QStringLiteral(":LF,RF")};
    for (const QString& uid : primary.satellites) {
        if (const Player* s = h.playerByUid(uid))
            parts << s->uid + u':' + s->channel;
    }
    return parts.join(u';');
}

QString satelliteXml(const Household& h, const Player& s, quint16 port)
{
    return QStringLiteral("<Satellite") + commonAttributes(h, s, port) + tailAttributes(s) +
           QStringLiteral("/>");
}

QString memberXml(const Household& h, const Player& p, const QString& pairMap, quint16 port)
{
    QString a = commonAttributes(h, p, port);
    if (!p.satellites.isEmpty())
        a += attr(QStringLiteral("HTSatChanMapSet"), satelliteChannelMap(h, p));
    if (!pairMap.isEmpty())
        a += attr(QStringLiteral("ChannelMapSet"), pairMap);
    a += tailAttributes(p);
    QString xml = QStringLiteral("<ZoneGroupMember") + a + u'>';
    for (const QString& uid : p.satellites) {
        const Player* s = h.playerByUid(uid);
        if (s && s->online)
            xml += satelliteXml(h, *s, port);
    }
    return xml + QStringLiteral("</ZoneGroupMember>");
}

} // namespace

QString zoneGroupStateXml(const Household& h, quint16 port)
{
    QString xml = QStringLiteral("<ZoneGroupState><ZoneGroups>");
    for (const Group& g : h.groups) {
        const Player* coordinator = h.playerByUid(g.coordinator);
        if (!coordinator || !coordinator->online)
            continue;
        xml += QStringLiteral("<ZoneGroup") + attr(QStringLiteral("Coordinator"), g.coordinator) +
               attr(QStringLiteral("ID"), g.id) + u'>';
        for (const QString& uid : g.members) {
            const Player* p = h.playerByUid(uid);
            if (!p || !p->online)
                continue;
            // A stereo pair is two members that carry the same channel map.
            const Player* right = nullptr;
            for (const Player& candidate : h.players) {
                if (candidate.stereoPairOf == p->uid && candidate.online)
                    right = &candidate;
            }
            const QString pairMap =
                right ? QStringLiteral("%1:LF,LF;%2:RF,RF").arg(p->uid, right->uid) : QString();
            xml += memberXml(h, *p, pairMap, port);
            if (right)
                xml += memberXml(h, *right, pairMap, port);
        }
        xml += QStringLiteral("</ZoneGroup>");
    }
    return xml +
           QStringLiteral("</ZoneGroups><VanishedDevices></VanishedDevices></ZoneGroupState>");
}

} // namespace emulator
