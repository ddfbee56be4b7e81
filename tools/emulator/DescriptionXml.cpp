#include "DescriptionXml.h"

#include "SoapEnvelope.h"

namespace emulator {
namespace {

QString element(const QString& name, const QString& value)
{
    return QStringLiteral("<%1>%2</%1>").arg(name, escapeXml(value));
}

QString service(const QString& type, const QString& id, const QString& path)
{
    return QStringLiteral("<service><serviceType>urn:schemas-upnp-org:service:%1:1</serviceType>"
                          "<serviceId>urn:upnp-org:serviceId:%2</serviceId>"
                          "<controlURL>%3/Control</controlURL>"
                          "<eventSubURL>%3/Event</eventSubURL>"
                          "<SCPDURL>/xml/%1%4.xml</SCPDURL></service>")
        .arg(type, id, path, QStringLiteral("1"));
}

// The model lines each device of the description repeats.
QString modelLines(const Player& p, const QString& description)
{
    QString xml =
        element(QStringLiteral("manufacturer"), QStringLiteral("Sonos, Inc.")) +
        element(QStringLiteral("manufacturerURL"), QStringLiteral("http://www.sonos.com")) +
        element(QStringLiteral("modelNumber"), p.modelNumber) +
        element(QStringLiteral("modelDescription"), description);
    if (p.quirks.describesModelName)
        xml += element(QStringLiteral("modelName"), p.modelName);
    return xml +
           element(QStringLiteral("modelURL"),
                   QStringLiteral("http://www.sonos.com/products/zoneplayers/") + p.modelNumber);
}

QString macAddress(const Player& p)
{
    const QString hex = p.uid.mid(7, 12).toUpper();
    QStringList pairs;
    for (int i = 0; i < 12; i += 2)
        pairs << hex.mid(i, 2);
    return pairs.join(u':');
}

QString embeddedDevices(const Player& p)
{
    const QString renderer =
        QStringLiteral(
            "<device><deviceType>urn:schemas-upnp-org:device:MediaRenderer:1</deviceType>") +
        element(QStringLiteral("friendlyName"), p.room + QStringLiteral(" - ") + p.modelName) +
        modelLines(p, p.modelName + QStringLiteral(" Media Renderer")) +
        element(QStringLiteral("UDN"), QStringLiteral("uuid:") + p.uid + QStringLiteral("_MR")) +
        QStringLiteral("<serviceList>") +
        service(QStringLiteral("RenderingControl"), QStringLiteral("RenderingControl"),
                QStringLiteral("/MediaRenderer/RenderingControl")) +
        service(QStringLiteral("ConnectionManager"), QStringLiteral("ConnectionManager"),
                QStringLiteral("/MediaRenderer/ConnectionManager")) +
        service(QStringLiteral("AVTransport"), QStringLiteral("AVTransport"),
                QStringLiteral("/MediaRenderer/AVTransport")) +
        service(QStringLiteral("GroupRenderingControl"), QStringLiteral("GroupRenderingControl"),
                QStringLiteral("/MediaRenderer/GroupRenderingControl")) +
        QStringLiteral("</serviceList></device>");
    const QString server =
        QStringLiteral(
            "<device><deviceType>urn:schemas-upnp-org:device:MediaServer:1</deviceType>") +
        element(QStringLiteral("friendlyName"),
                p.host + QStringLiteral(" - ") + p.modelName + QStringLiteral(" Media Server")) +
        modelLines(p, p.modelName + QStringLiteral(" Media Server")) +
        element(QStringLiteral("UDN"), QStringLiteral("uuid:") + p.uid + QStringLiteral("_MS")) +
        QStringLiteral("<serviceList>") +
        service(QStringLiteral("ContentDirectory"), QStringLiteral("ContentDirectory"),
                QStringLiteral("/MediaServer/ContentDirectory")) +
        service(QStringLiteral("ConnectionManager"), QStringLiteral("ConnectionManager"),
                QStringLiteral("/MediaServer/ConnectionManager")) +
        QStringLiteral("</serviceList></device>");
    return QStringLiteral("<deviceList>") + server + renderer + QStringLiteral("</deviceList>");
}

} // namespace

QByteArray serverHeader(const Player& p)
{
    return QStringLiteral("Linux UPnP/1.0 Sonos/%1 (ZP%2)")
        .arg(p.softwareVersion, p.modelNumber)
        .toUtf8();
}

QByteArray deviceDescriptionXml(const Player& p, const QString& householdId, quint16 port)
{
    QString xml =
        QStringLiteral("<?xml version=\"1.0\" encoding=\"utf-8\" ?>\n"
                       "<root xmlns=\"urn:schemas-upnp-org:device-1-0\">"
                       "<specVersion><major>1</major><minor>0</minor></specVersion>"
                       "<device><deviceType>urn:schemas-upnp-org:device:ZonePlayer:1</deviceType>");
    xml += element(QStringLiteral("friendlyName"),
                   p.host + QStringLiteral(" - ") + p.modelName + QStringLiteral(" - ") + p.uid);
    xml += modelLines(p, p.modelName);
    xml += element(QStringLiteral("softwareVersion"), p.softwareVersion);
    xml += element(QStringLiteral("swGen"), QStringLiteral("2"));
    xml += element(QStringLiteral("hardwareVersion"), QStringLiteral("1.25.1.4-2.1"));
    xml += element(QStringLiteral("serialNum"),
                   macAddress(p).replace(u':', u'-') + QStringLiteral(":E"));
    xml += element(QStringLiteral("MACAddress"), macAddress(p));
    xml += element(QStringLiteral("UDN"), QStringLiteral("uuid:") + p.uid);
    xml += QStringLiteral(
               "<iconList><icon><id>0</id><mimetype>image/png</mimetype><width>48</width>"
               "<height>48</height><depth>24</depth><url>/img/icon-%1.png</url></icon></iconList>")
               .arg(p.modelNumber);
    xml += element(QStringLiteral("minCompatibleVersion"), QStringLiteral("78.0-00000"));
    xml += element(QStringLiteral("legacyCompatibleVersion"), QStringLiteral("58.0-00000"));
    xml += element(QStringLiteral("apiVersion"), QStringLiteral("1.40.1"));
    xml += element(QStringLiteral("minApiVersion"), QStringLiteral("1.1.0"));
    xml += element(QStringLiteral("displayVersion"), QStringLiteral("16.4"));
    xml += QStringLiteral("<extraVersion></extraVersion>");
    xml += element(QStringLiteral("roomName"), p.room);
    xml += element(QStringLiteral("displayName"), p.displayName);
    xml += element(QStringLiteral("zoneType"), QStringLiteral("21"));
    xml += element(QStringLiteral("householdControlID"), householdId);
    xml += element(QStringLiteral("sslPort"), QString::number(1443));
    xml += element(QStringLiteral("hhSslPort"), QString::number(1843));
    xml += element(QStringLiteral("presentationURL"),
                   QStringLiteral("http://%1:%2/").arg(p.host).arg(port));
    xml +=
        QStringLiteral("<serviceList>") +
        service(QStringLiteral("AlarmClock"), QStringLiteral("AlarmClock"),
                QStringLiteral("/AlarmClock")) +
        service(QStringLiteral("MusicServices"), QStringLiteral("MusicServices"),
                QStringLiteral("/MusicServices")) +
        service(QStringLiteral("AudioIn"), QStringLiteral("AudioIn"), QStringLiteral("/AudioIn")) +
        service(QStringLiteral("DeviceProperties"), QStringLiteral("DeviceProperties"),
                QStringLiteral("/DeviceProperties")) +
        service(QStringLiteral("SystemProperties"), QStringLiteral("SystemProperties"),
                QStringLiteral("/SystemProperties")) +
        service(QStringLiteral("ZoneGroupTopology"), QStringLiteral("ZoneGroupTopology"),
                QStringLiteral("/ZoneGroupTopology")) +
        service(QStringLiteral("GroupManagement"), QStringLiteral("GroupManagement"),
                QStringLiteral("/GroupManagement")) +
        QStringLiteral("</serviceList>");
    xml += embeddedDevices(p);
    xml += QStringLiteral("</device></root>\n");
    return xml.toUtf8();
}

} // namespace emulator
