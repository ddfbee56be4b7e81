#pragma once

#include "Household.h"
#include "HttpAnswer.h"

#include <QString>

namespace emulator {

namespace ServiceType {
inline const QString renderingControl =
    QStringLiteral("urn:schemas-upnp-org:service:RenderingControl:1");
inline const QString groupRenderingControl =
    QStringLiteral("urn:schemas-upnp-org:service:GroupRenderingControl:1");
inline const QString avTransport = QStringLiteral("urn:schemas-upnp-org:service:AVTransport:1");
inline const QString zoneGroupTopology =
    QStringLiteral("urn:schemas-upnp-org:service:ZoneGroupTopology:1");
} // namespace ServiceType

// The service type served at a control path ("/MediaRenderer/AVTransport/Control"), or
// empty when the path is no control path of a zone player.
QString serviceAtControlPath(const QByteArray& path);

// The zones whose volumes make up the group volume of the group `uid` plays in: its visible
// members that are online and have a variable volume.
QList<Player*> volumeZones(Household& household, const QString& uid);

// The group volume and mute of the group `uid` plays in, as its coordinator reports them.
struct GroupLevel {
    int volume = 0;
    bool muted = false;
};
GroupLevel groupLevel(Household& household, const QString& uid);

// Answers one SOAP control request to the player at `host`, changing the household as
// the action asks. The caller holds whatever lock guards `household`.
HttpAnswer answerControl(Household& household, const QString& host, const Request& request,
                         quint16 port);

} // namespace emulator
