#include "HttpAnswer.h"

namespace emulator {

QByteArray reasonPhrase(int status)
{
    switch (status) {
    case 200:
        return "OK";
    case 400:
        return "Bad Request";
    case 403:
        return "Forbidden";
    case 404:
        return "Not Found";
    case 405:
        return "Method Not Allowed";
    case 412:
        return "Precondition Failed";
    case 413:
        return "Payload Too Large";
    case 431:
        return "Request Header Fields Too Large";
    case 500:
        return "Internal Server Error";
    case 501:
        return "Not Implemented";
    case 503:
        return "Service Unavailable";
    default:
        return "Status";
    }
}

QByteArray serialize(const HttpAnswer& answer, const QByteArray& server, bool closeAfter)
{
    QByteArray out = "HTTP/1.1 " + QByteArray::number(answer.status) + ' ' +
                     reasonPhrase(answer.status) + "\r\n";
    out += "CONTENT-LENGTH: " + QByteArray::number(answer.body.size()) + "\r\n";
    if (!answer.contentType.isEmpty())
        out += "CONTENT-TYPE: " + answer.contentType + "\r\n";
    out += "EXT:\r\n";
    out += "Server: " + server + "\r\n";
    for (const auto& [name, value] : answer.headers)
        out += name + ": " + value + "\r\n";
    if (closeAfter)
        out += "Connection: close\r\n";
    out += "\r\n";
    out += answer.body;
    return out;
}

HttpAnswer plainStatus(int status)
{
    const QByteArray text = QByteArray::number(status) + ' ' + reasonPhrase(status);
    return HttpAnswer{status, "text/html",
                      "<html><head><title>" + text + "</title></head><body><h1>" + text +
                          "</h1></body></html>"};
}

} // namespace emulator
