#pragma once

// The UPnP services of a zone player that the speaker stack talks to: where each one is
// controlled and the type named in its SOAP action.
struct SonosService {
    const char* controlPath;
    const char* type;
};

namespace SonosServices {

inline constexpr SonosService renderingControl{"/MediaRenderer/RenderingControl/Control",
                                               "urn:schemas-upnp-org:service:RenderingControl:1"};
inline constexpr SonosService groupRenderingControl{
    "/MediaRenderer/GroupRenderingControl/Control",
    "urn:schemas-upnp-org:service:GroupRenderingControl:1"};
inline constexpr SonosService avTransport{"/MediaRenderer/AVTransport/Control",
                                          "urn:schemas-upnp-org:service:AVTransport:1"};
inline constexpr SonosService zoneGroupTopology{"/ZoneGroupTopology/Control",
                                                "urn:schemas-upnp-org:service:ZoneGroupTopology:1"};

} // namespace SonosServices
