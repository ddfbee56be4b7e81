#include "SoapEnvelope.h"

#include <QXmlStreamReader>

namespace emulator {
namespace {

const QString envelopeNs = QStringLiteral("http://schemas.xmlsoap.org/soap/envelope/");
const QByteArray envelopeStart =
    "<s:Envelope xmlns:s=\"http://schemas.xmlsoap.org/soap/envelope/\" "
    "s:encodingStyle=\"http://schemas.xmlsoap.org/soap/encoding/\">"
    "<s:Body>";
const QByteArray envelopeEnd = "</s:Body></s:Envelope>";

bool nextElement(QXmlStreamReader& xml, const QString& ns, const QString& name)
{
    return xml.readNextStartElement() && xml.namespaceUri() == ns && xml.name() == name;
}

} // namespace

std::pair<QString, QString> splitSoapAction(const QByteArray& header)
{
    QString value = QString::fromUtf8(header).trimmed();
    if (value.size() >= 2 && value.startsWith(u'"') && value.endsWith(u'"'))
        value = value.mid(1, value.size() - 2);
    const qsizetype hash = value.lastIndexOf(u'#');
    if (hash <= 0 || hash == value.size() - 1)
        return {};
    return {value.left(hash), value.mid(hash + 1)};
}

Expected<SoapCall, int> readSoapCall(const QByteArray& soapActionHeader, const QByteArray& body)
{
    SoapCall call;
    std::tie(call.service, call.action) = splitSoapAction(soapActionHeader);
    if (call.action.isEmpty())
        return UpnpError::InvalidAction;

    QXmlStreamReader xml(body);
    if (!nextElement(xml, envelopeNs, QStringLiteral("Envelope")) ||
        !nextElement(xml, envelopeNs, QStringLiteral("Body")) ||
        !nextElement(xml, call.service, call.action))
        return UpnpError::InvalidAction;

    while (xml.readNextStartElement()) {
        const QString name = xml.name().toString();
        const QString text = xml.readElementText(QXmlStreamReader::ErrorOnUnexpectedElement);
        if (xml.hasError() || call.arguments.contains(name))
            return UpnpError::InvalidArgs;
        call.arguments.insert(name, text);
    }
    // The rest of the document must be well formed too: a truncated body is no call.
    while (!xml.atEnd())
        xml.readNext();
    if (xml.hasError())
        return UpnpError::InvalidAction;
    return call;
}

HttpAnswer soapResponse(const SoapCall& call, const QList<std::pair<QString, QString>>& out)
{
    QByteArray body = envelopeStart;
    body += "<u:" + call.action.toUtf8() + "Response xmlns:u=\"" + call.service.toUtf8() + "\">";
    for (const auto& [name, value] : out)
        body += '<' + name.toUtf8() + '>' + escapeXml(value).toUtf8() + "</" + name.toUtf8() + '>';
    body += "</u:" + call.action.toUtf8() + "Response>";
    body += envelopeEnd;
    return HttpAnswer{200, "text/xml; charset=\"utf-8\"", body};
}

HttpAnswer upnpFault(int errorCode)
{
    QByteArray body = envelopeStart;
    body += "<s:Fault><faultcode>s:Client</faultcode><faultstring>UPnPError</faultstring>"
            "<detail><UPnPError xmlns=\"urn:schemas-upnp-org:control-1-0\"><errorCode>" +
            QByteArray::number(errorCode) + "</errorCode></UPnPError></detail></s:Fault>";
    body += envelopeEnd;
    return HttpAnswer{500, "text/xml; charset=\"utf-8\"", body};
}

QString escapeXml(const QString& text)
{
    QString out;
    out.reserve(text.size());
    for (QChar c : text) {
        switch (c.unicode()) {
        case '&':
            out += QStringLiteral("&amp;");
            break;
        case '<':
            out += QStringLiteral("&lt;");
            break;
        case '>':
            out += QStringLiteral("&gt;");
            break;
        case '"':
            out += QStringLiteral("&quot;");
            break;
        default:
            out += c;
        }
    }
    return out;
}

} // namespace emulator
