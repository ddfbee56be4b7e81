#pragma once

#include "HttpAnswer.h"
#include "support/Expected.h"

#include <QByteArray>
#include <QList>
#include <QMap>
#include <QString>

#include <utility>

namespace emulator {

// UPnP error codes a zone player answers with.
namespace UpnpError {
constexpr int InvalidAction = 401;
constexpr int InvalidArgs = 402;
constexpr int ActionFailed = 501;
constexpr int ArgumentValueInvalid = 600;
constexpr int ArgumentValueOutOfRange = 601;
constexpr int TransitionNotAvailable = 701;
constexpr int InvalidInstanceId = 718;
} // namespace UpnpError

// One control request as read from its SOAPACTION header and its body.
struct SoapCall {
    QString service;                  // "urn:schemas-upnp-org:service:RenderingControl:1"
    QString action;                   // "SetVolume"
    QMap<QString, QString> arguments; // child elements of the action element, by local name
};

// Splits a SOAPACTION header ("\"urn:…:RenderingControl:1#SetVolume\"") into service
// and action; empty strings when it is not of that shape.
std::pair<QString, QString> splitSoapAction(const QByteArray& header);

// Reads the envelope with a real XML reader: the action element must be the first child
// of the SOAP body, named and namespaced as the header says. Answers a UPnP error code
// when it is not.
Expected<SoapCall, int> readSoapCall(const QByteArray& soapActionHeader, const QByteArray& body);

// "<u:SetVolumeResponse xmlns:u=…>…</u:SetVolumeResponse>" inside an envelope, the
// output arguments in the given order, their values escaped.
HttpAnswer soapResponse(const SoapCall& call, const QList<std::pair<QString, QString>>& out);
// HTTP 500 with a SOAP fault carrying the UPnP error code.
HttpAnswer upnpFault(int errorCode);

// Escapes &, <, > and the double quote; apostrophes stay as they are, as players leave
// them in room names.
QString escapeXml(const QString& text);

} // namespace emulator
