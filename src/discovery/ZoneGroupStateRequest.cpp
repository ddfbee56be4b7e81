#include "discovery/ZoneGroupStateRequest.h"

#include "speaker/SoapEnvelope.h"
#include "speaker/SonosDevice.h"
#include "speaker/SonosService.h"

namespace ZoneGroupStateRequest {

namespace {
constexpr SonosService service = SonosServices::zoneGroupTopology;
}

SonosResult<Prepared> prepare(const QString& host)
{
    const SonosResult<QUrl> url = SonosDevice::url(host, QString::fromLatin1(service.controlPath));
    if (!url)
        return url.error();
    Prepared prepared{QNetworkRequest(url.value()), body()};
    prepared.request.setRawHeader("Content-Type", "text/xml; charset=\"utf-8\"");
    prepared.request.setRawHeader("SOAPACTION",
                                  SoapEnvelope::actionHeader(QString::fromLatin1(service.type),
                                                             QStringLiteral("GetZoneGroupState")));
    return prepared;
}

QByteArray body()
{
    return QByteArrayLiteral("<?xml version=\"1.0\"?>\n") +
           "<s:Envelope xmlns:s=\"http://schemas.xmlsoap.org/soap/envelope/\" "
           "s:encodingStyle=\"http://schemas.xmlsoap.org/soap/encoding/\">" +
           "<s:Body><u:GetZoneGroupState xmlns:u=\"" + service.type + "\"/></s:Body></s:Envelope>";
}

} // namespace ZoneGroupStateRequest
