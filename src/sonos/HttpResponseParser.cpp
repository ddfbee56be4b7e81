#include "sonos/HttpResponseParser.h"

#include "sonos/HttpHead.h"

#include <QList>

namespace {

// A chunk-size line is a few hex digits and perhaps an extension; anything longer is not one.
constexpr qsizetype chunkLineCap = 256;

// The end of the header section: the first empty line, ended by CRLF or a bare LF.
qsizetype headEnd(QByteArrayView bytes, qsizetype from, qsizetype& endLength)
{
    for (qsizetype i = from; i + 1 < bytes.size(); ++i) {
        if (bytes[i] != '\n')
            continue;
        if (bytes[i + 1] == '\n') {
            endLength = 2;
            return i;
        }
        if (bytes[i + 1] == '\r' && i + 2 < bytes.size() && bytes[i + 2] == '\n') {
            endLength = 3;
            return i;
        }
    }
    return -1;
}

bool hasToken(const QByteArray& list, QByteArrayView token)
{
    for (const QByteArray& item : list.split(','))
        if (item.trimmed().compare(token, Qt::CaseInsensitive) == 0)
            return true;
    return false;
}

} // namespace

HttpResponseParser::HttpResponseParser(qint64 bodyCap, bool bodyless)
    : m_bodyCap(bodyCap)
    , m_bodyless(bodyless)
{
}

HttpResponseParser::State HttpResponseParser::feed(QByteArrayView bytes)
{
    if (!bytes.isEmpty())
        m_sawBytes = true;
    while (!bytes.isEmpty() && (m_state == State::head || m_state == State::body)) {
        if (m_state == State::head)
            readHead(bytes);
        else
            readBody(bytes);
    }
    if (m_state == State::done && !bytes.isEmpty())
        m_leftover = true;
    return m_state;
}

HttpResponseParser::State HttpResponseParser::closed()
{
    if (m_state == State::body && m_framing == Framing::untilClose)
        m_state = State::done;
    return m_state;
}

bool HttpResponseParser::connectionReusable() const
{
    return m_state == State::done && m_http11 && !m_closeAsked &&
           m_framing != Framing::untilClose && !m_leftover;
}

void HttpResponseParser::readHead(QByteArrayView& bytes)
{
    // Only as much as can still belong to a head within the cap is taken; what follows the
    // head's end goes back to `bytes`.
    const qsizetype before = m_head.size();
    const qsizetype taken = std::min(headCap - before, bytes.size());
    m_head.append(bytes.first(taken));
    bytes = bytes.sliced(taken);

    if (!QByteArrayView("HTTP/").startsWith(
            QByteArrayView(m_head).first(std::min<qsizetype>(5, m_head.size()))))
        return fail(State::notHttp);
    // The end may straddle the slices: look again from just before the new bytes.
    qsizetype endLength = 0;
    const qsizetype end = headEnd(m_head, std::max<qsizetype>(0, before - 2), endLength);
    if (end < 0) {
        if (m_head.size() >= headCap)
            fail(State::headTooLarge);
        return;
    }
    const qsizetype unread = m_head.size() - (end + endLength);
    bytes = QByteArrayView(bytes.data() - unread, bytes.size() + unread);
    const QByteArray head = m_head.first(end);
    m_head.clear();
    if (!parseHead(head))
        return fail(State::notHttp);
    // An interim answer (100 Continue) is followed by the real one on the same connection.
    if (m_status >= 100 && m_status < 200 && m_status != 101)
        return;
    startBody();
}

bool HttpResponseParser::parseHead(QByteArrayView head)
{
    QList<QByteArrayView> lines = HttpHead::lines(head);
    // "HTTP/1.1 200 OK": a version, then a three-digit status.
    const QByteArrayView statusLine = lines.takeFirst();
    const qsizetype space = statusLine.indexOf(' ');
    if (space < 0 || !statusLine.startsWith("HTTP/1."))
        return false;
    const QByteArrayView code =
        statusLine.sliced(space + 1).first(std::min<qsizetype>(3, statusLine.size() - space - 1));
    if (code.size() != 3 || !HttpHead::isDigits(code) || code[0] < '1' || code[0] > '5')
        return false;
    m_status = code.toInt();
    m_http11 = statusLine.startsWith("HTTP/1.1");
    m_closeAsked = !m_http11;
    m_framing = Framing::untilClose;
    m_brokenLength = false;

    qint64 length = -1;
    bool transferCoded = false;
    m_fields.clear();
    for (const QByteArrayView line : lines) {
        const qsizetype colon = line.indexOf(':');
        if (colon <= 0)
            continue;
        const QByteArrayView name = line.first(colon).trimmed();
        const QByteArray value = line.sliced(colon + 1).trimmed().toByteArray();
        m_fields.append({name.toByteArray(), value});
        if (name.compare("Content-Length", Qt::CaseInsensitive) == 0) {
            // Two different lengths, or one that is not a number, leave the end unknown.
            const bool number = HttpHead::isDigits(value) && value.size() <= 18;
            if (!number || (length >= 0 && length != value.toLongLong()))
                m_brokenLength = true;
            else
                length = value.toLongLong();
        } else if (name.compare("Transfer-Encoding", Qt::CaseInsensitive) == 0) {
            transferCoded = true;
            const bool chunked =
                value.split(',').last().trimmed().compare("chunked", Qt::CaseInsensitive) == 0;
            m_framing = chunked ? Framing::chunked : Framing::untilClose;
        } else if (name.compare("Connection", Qt::CaseInsensitive) == 0) {
            if (hasToken(value, "close"))
                m_closeAsked = true;
            else if (hasToken(value, "keep-alive"))
                m_closeAsked = false;
        }
    }
    // A transfer coding decides the end over any length given beside it.
    if (m_framing == Framing::untilClose && length >= 0 && !transferCoded) {
        m_framing = Framing::length;
        m_remaining = length;
    }
    return true;
}

void HttpResponseParser::startBody()
{
    const bool noBody = m_bodyless || m_status == 204 || m_status == 304;
    if (noBody) {
        m_framing = Framing::none;
        m_state = State::done;
        return;
    }
    if (m_brokenLength && m_framing != Framing::chunked)
        return fail(State::badFraming);
    if (m_framing == Framing::length && m_remaining > m_bodyCap)
        return fail(State::bodyTooLarge);
    if (m_framing == Framing::length && m_remaining == 0) {
        m_state = State::done;
        return;
    }
    m_state = State::body;
}

void HttpResponseParser::readBody(QByteArrayView& bytes)
{
    switch (m_framing) {
    case Framing::length: {
        const qsizetype taken = std::min<qint64>(m_remaining, bytes.size());
        append(bytes.first(taken));
        bytes = bytes.sliced(taken);
        m_remaining -= taken;
        if (m_remaining == 0 && m_state == State::body)
            m_state = State::done;
        return;
    }
    case Framing::chunked:
        return readChunked(bytes);
    case Framing::untilClose:
        append(bytes);
        bytes = {};
        return;
    case Framing::none:
        m_state = State::done;
        return;
    }
}

void HttpResponseParser::readChunked(QByteArrayView& bytes)
{
    while (!bytes.isEmpty() && m_state == State::body) {
        switch (m_chunk) {
        case Chunk::size: {
            if (!takeLine(bytes, chunkLineCap))
                return;
            QByteArray size = m_line;
            m_line.clear();
            if (const qsizetype semicolon = size.indexOf(';'); semicolon >= 0)
                size.truncate(semicolon);
            bool ok = false;
            size = size.trimmed();
            m_remaining = size.size() <= 15 ? size.toLongLong(&ok, 16) : -1;
            if (!ok || m_remaining < 0)
                return fail(State::badFraming);
            if (m_body.size() + m_remaining > m_bodyCap)
                return fail(State::bodyTooLarge);
            m_chunk = m_remaining == 0 ? Chunk::trailer : Chunk::data;
            break;
        }
        case Chunk::data: {
            const qsizetype taken = std::min<qint64>(m_remaining, bytes.size());
            append(bytes.first(taken));
            bytes = bytes.sliced(taken);
            m_remaining -= taken;
            if (m_remaining == 0)
                m_chunk = Chunk::dataEnd;
            break;
        }
        case Chunk::dataEnd:
            if (!takeLine(bytes, 2))
                return;
            if (!m_line.isEmpty())
                return fail(State::badFraming);
            m_chunk = Chunk::size;
            break;
        case Chunk::trailer: {
            // Trailer fields are skipped, within the head's cap, up to the empty line.
            if (!takeLine(bytes, headCap - m_trailerBytes))
                return;
            const bool last = m_line.isEmpty();
            m_trailerBytes += m_line.size() + 2;
            m_line.clear();
            if (last)
                m_state = State::done;
            break;
        }
        }
    }
}

bool HttpResponseParser::takeLine(QByteArrayView& bytes, qsizetype lineCap)
{
    const qsizetype newline = bytes.indexOf('\n');
    const qsizetype taken = newline < 0 ? bytes.size() : newline + 1;
    m_line.append(bytes.first(taken));
    bytes = bytes.sliced(taken);
    if (newline < 0) {
        if (m_line.size() > lineCap + 1)
            fail(State::badFraming);
        return false;
    }
    m_line.chop(1);
    if (m_line.endsWith('\r'))
        m_line.chop(1);
    if (m_line.size() > lineCap) {
        fail(State::badFraming);
        return false;
    }
    return true;
}

void HttpResponseParser::append(QByteArrayView bytes)
{
    if (m_body.size() + bytes.size() > m_bodyCap)
        return fail(State::bodyTooLarge);
    m_body.append(bytes);
}
