#include "FaultReply.h"

#include "SoapEnvelope.h"

#include <algorithm>

namespace emulator {

bool faultApplies(const Fault& fault, const Request& request)
{
    if (fault.kind == Fault::Kind::None)
        return false;
    if (fault.only.isEmpty())
        return true;
    if (fault.only.startsWith(u'/'))
        return QString::fromUtf8(request.path).startsWith(fault.only);
    return request.action == fault.only;
}

bool faultLetsPlayerAct(const Fault& fault)
{
    return fault.kind == Fault::Kind::None || fault.kind == Fault::Kind::Delay ||
           fault.kind == Fault::Kind::Oversized || fault.kind == Fault::Kind::Trickle;
}

Reply faultReply(const Fault& fault, const HttpAnswer& normal, const QByteArray& server,
                 bool closeAfter)
{
    switch (fault.kind) {
    case Fault::Kind::None:
        return Reply{Reply::Kind::Send, serialize(normal, server, closeAfter), closeAfter, 0};
    case Fault::Kind::Delay:
        return Reply{Reply::Kind::Send, serialize(normal, server, closeAfter), closeAfter,
                     fault.delayMs};
    case Fault::Kind::Status: {
        const HttpAnswer answer =
            fault.status == 500 ? upnpFault(UpnpError::ActionFailed) : plainStatus(fault.status);
        return Reply{Reply::Kind::Send, serialize(answer, server, closeAfter), closeAfter, 0};
    }
    case Fault::Kind::Oversized: {
        // The real answer, then white space (still well-formed XML), cut to the length.
        HttpAnswer answer = normal;
        answer.status = 200;
        const qint64 length = std::max<qint64>(0, fault.bodyBytes);
        if (answer.body.size() > length)
            answer.body.truncate(length);
        else
            answer.body.append(QByteArray(length - answer.body.size(), ' '));
        return Reply{Reply::Kind::Send, serialize(answer, server, closeAfter), closeAfter, 0};
    }
    case Fault::Kind::Close:
        return Reply{Reply::Kind::Close, {}, true, 0};
    case Fault::Kind::Garbage: {
        // Something else entirely on port 1400: a TLS hello and binary noise.
        static const char noise[] = "\x16\x03\x01\x02\x00\x01\x00\x01\xfc\x03\x03 not a web "
                                    "server \xff\xfe\x00\x13\x37\r\n\r\n";
        return Reply{Reply::Kind::Send, QByteArray(noise, sizeof(noise) - 1), true, 0};
    }
    case Fault::Kind::Silent:
        return Reply{Reply::Kind::Silent, {}, false, 0};
    case Fault::Kind::NotImage: {
        // What a captive portal or a confused service hands out in place of a picture.
        const HttpAnswer page{200, "image/jpeg",
                              "<html><body><h1>Sign in to continue</h1></body></html>"};
        return Reply{Reply::Kind::Send, serialize(page, server, closeAfter), closeAfter, 0};
    }
    case Fault::Kind::Trickle:
        return Reply{Reply::Kind::Send, serialize(normal, server, closeAfter), closeAfter, 0,
                     std::max(1, fault.delayMs)};
    }
    return {};
}

bool wantsClose(const Request& request)
{
    const QByteArray connection = request.header("Connection").toLower();
    if (connection.contains("close"))
        return true;
    const QByteArray firstLine = request.raw.left(request.raw.indexOf('\n')).trimmed();
    return firstLine.endsWith("HTTP/1.0") && !connection.contains("keep-alive");
}

} // namespace emulator
