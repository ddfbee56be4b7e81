#include "speaker/SoapEnvelope.h"

namespace SoapEnvelope {

QByteArray actionHeader(const QString& serviceType, const QString& action)
{
    return QStringLiteral("\"%1#%2\"").arg(serviceType, action).toUtf8();
}

QByteArray body(const QString& serviceType, const QString& action, const QString& arguments)
{
    QString text;
    text += QStringLiteral("<?xml version=\"1.0\"?>\n");
    text += QStringLiteral("<s:Envelope xmlns:s=\"http://schemas.xmlsoap.org/soap/envelope/\" "
                           "s:encodingStyle=\"http://schemas.xmlsoap.org/soap/encoding/\">");
    text += QStringLiteral("<s:Body><u:") + action;
    text += QStringLiteral(" xmlns:u=\"") + serviceType + u'"';
    text += QStringLiteral("><InstanceID>0</InstanceID>");
    text += arguments;
    text += QStringLiteral("</u:") + action + QStringLiteral("></s:Body></s:Envelope>");
    return text.toUtf8();
}

} // namespace SoapEnvelope
