#include "sonos/SoapEnvelope.h"

namespace SoapEnvelope {

QByteArray actionHeader(const QString& serviceType, const QString& action)
{
    return QStringLiteral("\"%1#%2\"").arg(serviceType, action).toUtf8();
}

namespace {

QString opening()
{
    return QStringLiteral("<?xml version=\"1.0\"?>\n"
                          "<s:Envelope xmlns:s=\"http://schemas.xmlsoap.org/soap/envelope/\" "
                          "s:encodingStyle=\"http://schemas.xmlsoap.org/soap/encoding/\">");
}

} // namespace

QByteArray body(const QString& serviceType, const QString& action, const QString& arguments)
{
    QString text = opening();
    text += QStringLiteral("<s:Body><u:") + action;
    text += QStringLiteral(" xmlns:u=\"") + serviceType + u'"';
    text += QStringLiteral("><InstanceID>0</InstanceID>");
    text += arguments;
    text += QStringLiteral("</u:") + action + QStringLiteral("></s:Body></s:Envelope>");
    return text.toUtf8();
}

QByteArray emptyActionBody(const QString& serviceType, const QString& action)
{
    return (opening() + QStringLiteral("<s:Body><u:") + action + QStringLiteral(" xmlns:u=\"") +
            serviceType + QStringLiteral("\"/></s:Body></s:Envelope>"))
        .toUtf8();
}

} // namespace SoapEnvelope
