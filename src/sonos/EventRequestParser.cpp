#include "sonos/EventRequestParser.h"

#include "sonos/HttpHead.h"

namespace {

bool isToken(QByteArrayView text)
{
    if (text.isEmpty())
        return false;
    for (const char c : text)
        if (c < 'A' || c > 'Z')
            return false;
    return true;
}

} // namespace

EventRequestParser::EventRequestParser(qint64 bodyCap)
    : m_bodyCap(bodyCap)
{
}

EventRequestParser::State EventRequestParser::feed(QByteArrayView bytes)
{
    if (m_state == State::head)
        readHead(bytes);
    if (m_state == State::body && !bytes.isEmpty()) {
        // Bytes after the body belong to no request a player sends; they are not read.
        const qsizetype taken = std::min<qint64>(m_remaining, bytes.size());
        m_body.append(bytes.first(taken));
        m_remaining -= taken;
        if (m_remaining == 0)
            m_state = State::done;
    }
    return m_state;
}

QByteArray EventRequestParser::field(QByteArrayView name) const
{
    for (const auto& [fieldName, value] : m_fields)
        if (QByteArrayView(fieldName).compare(name, Qt::CaseInsensitive) == 0)
            return value;
    return {};
}

bool EventRequestParser::hasField(QByteArrayView name) const
{
    for (const auto& field : m_fields)
        if (QByteArrayView(field.first).compare(name, Qt::CaseInsensitive) == 0)
            return true;
    return false;
}

void EventRequestParser::readHead(QByteArrayView& bytes)
{
    const qsizetype before = m_head.size();
    const qsizetype taken = std::min(headCap - before, bytes.size());
    m_head.append(bytes.first(taken));
    bytes = bytes.sliced(taken);
    // The end may straddle the slices: look again from just before the new bytes.
    qsizetype end = -1;
    qsizetype endLength = 0;
    for (qsizetype i = std::max<qsizetype>(0, before - 3); i + 1 < m_head.size(); ++i) {
        if (m_head[i] != '\n')
            continue;
        if (m_head[i + 1] == '\n') {
            end = i;
            endLength = 2;
            break;
        }
        if (m_head[i + 1] == '\r' && i + 2 < m_head.size() && m_head[i + 2] == '\n') {
            end = i;
            endLength = 3;
            break;
        }
    }
    if (end < 0) {
        if (m_head.size() >= headCap)
            m_state = State::headTooLarge;
        return;
    }
    const qsizetype unread = m_head.size() - (end + endLength);
    bytes = QByteArrayView(bytes.data() - unread, bytes.size() + unread);
    const QByteArray head = m_head.first(end);
    m_head.clear();
    if (!parseHead(head)) {
        m_state = State::badRequest;
        return;
    }
    if (m_remaining > m_bodyCap)
        m_state = State::bodyTooLarge;
    else
        m_state = m_remaining == 0 ? State::done : State::body;
}

bool EventRequestParser::parseHead(QByteArrayView head)
{
    QList<QByteArrayView> lines = HttpHead::lines(head);
    // "NOTIFY /path HTTP/1.1": a method, a target and a version, one space apart.
    const QList<QByteArray> request = lines.takeFirst().toByteArray().split(' ');
    if (request.size() != 3 || !isToken(request[0]) || request[1].isEmpty() ||
        !request[2].startsWith("HTTP/1."))
        return false;
    m_method = request[0];
    m_target = request[1];

    qint64 length = -1;
    for (const QByteArrayView line : lines) {
        const qsizetype colon = line.indexOf(':');
        if (colon <= 0)
            return false;
        const QByteArray name = line.first(colon).trimmed().toByteArray();
        const QByteArray value = line.sliced(colon + 1).trimmed().toByteArray();
        m_fields.append({name, value});
        if (name.compare("Content-Length", Qt::CaseInsensitive) == 0) {
            // Two different lengths, or one that is not a number, leave the end unknown.
            if (!HttpHead::isDigits(value) || value.size() > 18 ||
                (length >= 0 && length != value.toLongLong()))
                return false;
            length = value.toLongLong();
        } else if (name.compare("Transfer-Encoding", Qt::CaseInsensitive) == 0) {
            return false;
        }
    }
    m_remaining = std::max<qint64>(length, 0);
    return true;
}
