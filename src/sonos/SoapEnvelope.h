#pragma once

#include <QByteArray>
#include <QString>

// The bytes of one UPnP control request. Players compare these texts literally, so they are
// built by plain concatenation; argument values are inserted as given, without escaping
// (everything sent is a number, a fixed word or an EQ type name).
namespace SoapEnvelope {

// The SOAPACTION header value, quotes included: "urn:…:RenderingControl:1#SetVolume".
QByteArray actionHeader(const QString& serviceType, const QString& action);

// The whole body, from the XML declaration to </s:Envelope>, with <InstanceID>0</InstanceID>
// ahead of `arguments`.
QByteArray body(const QString& serviceType, const QString& action, const QString& arguments);

// The body of an action that takes no arguments and no InstanceID (ZoneGroupTopology's
// GetZoneGroupState): the action element is empty and self-closing.
QByteArray emptyActionBody(const QString& serviceType, const QString& action);

} // namespace SoapEnvelope
