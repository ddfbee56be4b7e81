#include "discovery/ZoneGroupStateRequest.h"

#include "speaker/SonosDevice.h"

namespace ZoneGroupStateRequest {

SonosResult<Prepared> prepare(const QString& host)
{
    const SonosResult<QUrl> url = SonosDevice::url(host, path);
    if (!url)
        return url.error();
    Prepared prepared{QNetworkRequest(url.value()), body()};
    prepared.request.setTransferTimeout(5000);
    prepared.request.setRawHeader("Content-Type", "text/xml; charset=\"utf-8\"");
    prepared.request.setRawHeader("SOAPACTION",
                                  '"' + serviceType.toUtf8() + "#GetZoneGroupState\"");
    return prepared;
}

QByteArray body()
{
    return QByteArrayLiteral("<?xml version=\"1.0\"?>\n") +
           "<s:Envelope xmlns:s=\"http://schemas.xmlsoap.org/soap/envelope/\" "
           "s:encodingStyle=\"http://schemas.xmlsoap.org/soap/encoding/\">" +
           "<s:Body><u:GetZoneGroupState xmlns:u=\"" + serviceType.toUtf8() +
           "\"/></s:Body></s:Envelope>";
}

} // namespace ZoneGroupStateRequest
