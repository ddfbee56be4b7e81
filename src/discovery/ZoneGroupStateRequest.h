#pragma once

#include "speaker/SonosError.h"

#include <QByteArray>
#include <QNetworkRequest>
#include <QString>

// The one SOAP request that carries no InstanceID: ZoneGroupTopology's GetZoneGroupState,
// whose action element is empty and self-closing.
namespace ZoneGroupStateRequest {

struct Prepared {
    QNetworkRequest request;
    QByteArray body;
};

// The request for the player at `host`; a bad response when no URL can be formed from it.
SonosResult<Prepared> prepare(const QString& host);

QByteArray body();

} // namespace ZoneGroupStateRequest
