#pragma once

#include <QByteArray>
#include <QByteArrayView>
#include <QList>

#include <utility>

// One HTTP/1.x answer read from the bytes a connection delivers, however they are sliced.
// Both halves are capped: the header section (status line, fields and the empty line that
// ends them) at `headCap`, the body
// at the cap the caller gives, so that a device that streams an endless status line, header
// section, chunk line or body is refused after a bounded number of bytes instead of being
// read for ever. A plain value with no I/O: the connection feeds it and acts on its state.
class HttpResponseParser {
public:
    static constexpr qsizetype headCap = 16 * 1024;

    enum class State {
        head,         // still reading the status line and header fields
        body,         // reading the body
        done,         // the answer is complete
        notHttp,      // the bytes are not an HTTP answer at all
        headTooLarge, // no end of the header section within headCap
        bodyTooLarge, // the body is longer than the cap
        badFraming,   // a broken length or chunk: the body's end cannot be known
    };

    // `bodyless`: the answer to a request that never has a body (HEAD).
    explicit HttpResponseParser(qint64 bodyCap, bool bodyless = false);

    // Reads `bytes`; the state after them. Bytes after a complete answer are kept apart
    // (`hasLeftover`), never read as part of it.
    State feed(QByteArrayView bytes);
    // The peer closed the connection: a body that runs until the close is complete now.
    State closed();

    State state() const { return m_state; }
    bool sawBytes() const { return m_sawBytes; }
    int status() const { return m_status; }
    const QByteArray& body() const { return m_body; }
    // The header fields of the answer, names and values as sent, in order.
    const QList<std::pair<QByteArray, QByteArray>>& fields() const { return m_fields; }
    // Whether the connection may carry another request: a complete HTTP/1.1 answer of known
    // length that did not ask for the close, with nothing after it.
    bool connectionReusable() const;
    bool hasLeftover() const { return m_leftover; }

private:
    enum class Framing { none, length, chunked, untilClose };
    enum class Chunk { size, data, dataEnd, trailer };

    void readHead(QByteArrayView& bytes);
    bool parseHead(QByteArrayView head);
    void startBody();
    void readBody(QByteArrayView& bytes);
    void readChunked(QByteArrayView& bytes);
    // Takes one line from `bytes` into m_line; true once it is whole (without its end).
    bool takeLine(QByteArrayView& bytes, qsizetype lineCap);
    void append(QByteArrayView bytes);
    void fail(State state) { m_state = state; }

    qint64 m_bodyCap;
    bool m_bodyless;
    State m_state = State::head;
    bool m_sawBytes = false;
    bool m_leftover = false;
    QByteArray m_head;
    int m_status = -1;
    bool m_http11 = false;
    bool m_closeAsked = false;
    bool m_brokenLength = false;
    Framing m_framing = Framing::untilClose;
    qint64 m_remaining = 0;
    Chunk m_chunk = Chunk::size;
    QByteArray m_line;
    qsizetype m_trailerBytes = 0;
    QByteArray m_body;
    QList<std::pair<QByteArray, QByteArray>> m_fields;
};
