#pragma once

#include <QByteArray>
#include <QString>
#include <QTcpSocket>

#include <optional>
#include <utility>

// Plain HTTP over a raw socket, written for these tests from the protocol, so that what
// the emulator receives is exactly what the test wrote.
namespace rawhttp {

struct Reply {
    int status = -1;
    QByteArray head;
    QByteArray body;
};

inline const QByteArray envelopeStart =
    "<?xml version=\"1.0\"?>\n<s:Envelope xmlns:s=\"http://schemas.xmlsoap.org/soap/envelope/\" "
    "s:encodingStyle=\"http://schemas.xmlsoap.org/soap/encoding/\"><s:Body>";

inline QByteArray serviceType(const QByteArray& service)
{
    return "urn:schemas-upnp-org:service:" + service + ":1";
}

inline QByteArray controlPath(const QByteArray& service)
{
    return service == "ZoneGroupTopology" ? "/ZoneGroupTopology/Control"
                                          : "/MediaRenderer/" + service + "/Control";
}

inline QByteArray post(const QString& host, const QByteArray& path, const QByteArray& soapAction,
                       const QByteArray& body)
{
    return "POST " + path + " HTTP/1.1\r\nHOST: " + host.toUtf8() +
           ":1400\r\nCONTENT-TYPE: text/xml; charset=\"utf-8\"\r\nSOAPACTION: \"" + soapAction +
           "\"\r\nCONTENT-LENGTH: " + QByteArray::number(body.size()) + "\r\n\r\n" + body;
}

// A control request as a client sends it; `arguments` follow <InstanceID>0</InstanceID>.
inline QByteArray soap(const QString& host, const QByteArray& service, const QByteArray& action,
                       const QByteArray& arguments = {})
{
    const QByteArray type = serviceType(service);
    const QByteArray body = envelopeStart + "<u:" + action + " xmlns:u=\"" + type +
                            "\"><InstanceID>0</InstanceID>" + arguments + "</u:" + action +
                            "></s:Body></s:Envelope>";
    return post(host, controlPath(service), type + '#' + action, body);
}

inline QByteArray get(const QString& host, const QByteArray& path)
{
    return "GET " + path + " HTTP/1.1\r\nHost: " + host.toUtf8() + ":1400\r\n\r\n";
}

// One client connection that keeps what it has read beyond the current answer.
class Connection {
public:
    bool open(const QString& host, int timeoutMs = 3000)
    {
        m_socket.connectToHost(host, 1400);
        return m_socket.waitForConnected(timeoutMs);
    }
    void send(const QByteArray& bytes)
    {
        m_socket.write(bytes);
        m_socket.flush();
    }
    // One whole answer; absent when the connection closes or stays quiet first.
    std::optional<Reply> read(int timeoutMs = 3000)
    {
        while (true) {
            if (std::optional<Reply> reply = takeReply())
                return reply;
            if (!fill(timeoutMs))
                return std::nullopt;
        }
    }
    // Everything until the other side closes (or `timeoutMs` of silence).
    QByteArray readToEnd(int timeoutMs = 3000)
    {
        while (fill(timeoutMs)) {
        }
        return std::exchange(m_buffer, {});
    }
    bool isClosed() const { return m_socket.state() == QAbstractSocket::UnconnectedState; }
    QTcpSocket& socket() { return m_socket; }

private:
    bool fill(int timeoutMs)
    {
        if (m_socket.bytesAvailable() == 0 && !m_socket.waitForReadyRead(timeoutMs))
            return false;
        m_buffer += m_socket.readAll();
        return true;
    }
    std::optional<Reply> takeReply()
    {
        const qsizetype end = m_buffer.indexOf("\r\n\r\n");
        if (end < 0)
            return std::nullopt;
        Reply reply;
        reply.head = m_buffer.left(end);
        reply.status = reply.head.startsWith("HTTP/1.1 ") ? reply.head.mid(9, 3).toInt() : -1;
        const QByteArray lower = reply.head.toLower();
        const qsizetype at = lower.indexOf("content-length:");
        const qsizetype lineEnd = lower.indexOf('\r', at);
        const qint64 length =
            at < 0 ? 0
                   : lower.mid(at + 15, (lineEnd < 0 ? lower.size() : lineEnd) - at - 15)
                         .trimmed()
                         .toLongLong();
        if (m_buffer.size() - end - 4 < length)
            return std::nullopt;
        reply.body = m_buffer.mid(end + 4, length);
        m_buffer.remove(0, end + 4 + length);
        return reply;
    }

    QTcpSocket m_socket;
    QByteArray m_buffer;
};

inline std::optional<Reply> exchange(const QString& host, const QByteArray& request,
                                     int timeoutMs = 3000)
{
    Connection c;
    if (!c.open(host, timeoutMs))
        return std::nullopt;
    c.send(request);
    return c.read(timeoutMs);
}

// The five entities of XML, undone in the order that keeps double escapes intact.
inline QString unescape(QString text)
{
    return text.replace("&lt;", "<")
        .replace("&gt;", ">")
        .replace("&quot;", "\"")
        .replace("&apos;", "'")
        .replace("&amp;", "&");
}

// The text of the first <name>…</name>, or absent.
inline std::optional<QString> element(const QString& name, const QString& text)
{
    const QString open = '<' + name + '>';
    const qsizetype start = text.indexOf(open);
    const qsizetype end = text.indexOf("</" + name + '>', start + open.size());
    if (start < 0 || end < 0)
        return std::nullopt;
    return text.mid(start + open.size(), end - start - open.size());
}

} // namespace rawhttp
