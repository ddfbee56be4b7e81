#include "HttpRequestParser.h"

#include <QList>

#include <algorithm>
#include <cctype>

namespace emulator {
namespace {

bool isToken(const QByteArray& s)
{
    if (s.isEmpty())
        return false;
    for (char c : s) {
        const bool ok = (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') ||
                        (c >= '0' && c <= '9') || QByteArrayView("!#$%&'*+-.^_`|~").contains(c);
        if (!ok)
            return false;
    }
    return true;
}

// Where the head ends (just past the blank line), accepting bare line feeds as well.
qsizetype headEnd(const QByteArray& buffer)
{
    const qsizetype crlf = buffer.indexOf("\r\n\r\n");
    const qsizetype lf = buffer.indexOf("\n\n");
    if (crlf >= 0 && (lf < 0 || crlf + 2 <= lf))
        return crlf + 4;
    return lf >= 0 ? lf + 2 : -1;
}

} // namespace

HttpRequestParser::HttpRequestParser()
    : m_limits(Limits())
{
}

HttpRequestParser::HttpRequestParser(Limits limits)
    : m_limits(limits)
{
}

void HttpRequestParser::feed(const QByteArray& bytes)
{
    if (!m_error)
        m_buffer.append(bytes);
}

std::optional<Request> HttpRequestParser::take()
{
    if (m_error)
        return std::nullopt;
    // Blank lines between requests are tolerated, as HTTP asks of servers.
    while (m_buffer.startsWith("\r\n") || m_buffer.startsWith("\n"))
        m_buffer.remove(0, m_buffer.startsWith("\r\n") ? 2 : 1);

    const qsizetype end = headEnd(m_buffer);
    if (end < 0) {
        if (m_buffer.size() > m_limits.maxHeadBytes)
            return fail(431, "Request Header Fields Too Large");
        return std::nullopt;
    }
    if (end > m_limits.maxHeadBytes)
        return fail(431, "Request Header Fields Too Large");

    Request request;
    if (!parseHead(m_buffer.left(end), request))
        return std::nullopt;

    qint64 length = 0;
    const QByteArray lengthText = request.header("Content-Length").trimmed();
    if (!request.header("Transfer-Encoding").isEmpty())
        return fail(501, "Not Implemented");
    if (!lengthText.isEmpty()) {
        bool ok = false;
        length = lengthText.toLongLong(&ok);
        if (!ok || length < 0 || !std::all_of(lengthText.begin(), lengthText.end(), ::isdigit))
            return fail(400, "Bad Request");
        if (length > m_limits.maxBodyBytes)
            return fail(413, "Payload Too Large");
    }
    if (m_buffer.size() - end < length)
        return std::nullopt;

    request.raw = m_buffer.left(end + length);
    request.body = m_buffer.mid(end, length);
    m_buffer.remove(0, end + length);
    return request;
}

bool HttpRequestParser::parseHead(const QByteArray& head, Request& request)
{
    QList<QByteArray> lines = head.split('\n');
    for (QByteArray& line : lines) {
        if (line.endsWith('\r'))
            line.chop(1);
    }
    while (!lines.isEmpty() && lines.last().isEmpty())
        lines.removeLast();

    const QList<QByteArray> start = lines.value(0).split(' ');
    if (start.size() != 3 || !isToken(start[0]) || start[1].isEmpty() ||
        !(start[2] == "HTTP/1.1" || start[2] == "HTTP/1.0")) {
        fail(400, "Bad Request");
        return false;
    }
    request.method = start[0];
    request.path = start[1];
    if (lines.size() - 1 > m_limits.maxHeaders) {
        fail(431, "Request Header Fields Too Large");
        return false;
    }
    for (qsizetype i = 1; i < lines.size(); ++i) {
        const qsizetype colon = lines[i].indexOf(':');
        const QByteArray name = lines[i].left(colon);
        if (colon <= 0 || !isToken(name)) {
            fail(400, "Bad Request");
            return false;
        }
        request.headers.append({name, lines[i].mid(colon + 1).trimmed()});
    }
    if (start[2] == "HTTP/1.1" && request.header("Host").isEmpty()) {
        fail(400, "Bad Request");
        return false;
    }
    return true;
}

std::optional<Request> HttpRequestParser::fail(int status, const char* reason)
{
    m_error = Error{status, reason};
    m_buffer.clear();
    return std::nullopt;
}

} // namespace emulator
