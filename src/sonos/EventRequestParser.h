#pragma once

#include <QByteArray>
#include <QByteArrayView>
#include <QList>

#include <utility>

// One HTTP/1.x request read from the bytes a connection delivers, however they are sliced:
// what a player sends to the event callback. Capped like the answers the speaker stack
// reads (16 KiB of head, the body at the caller's cap), so that a peer that streams an
// endless head or body is refused after a bounded number of bytes. The body's length must be
// given (Content-Length); a player's event always gives it. A plain value with no I/O.
class EventRequestParser {
public:
    static constexpr qsizetype headCap = 16 * 1024;

    enum class State {
        head,         // still reading the request line and header fields
        body,         // reading the body
        done,         // the request is complete
        badRequest,   // not an HTTP request, or one whose body's end cannot be known
        headTooLarge, // no end of the header section within headCap
        bodyTooLarge, // the body is longer than the cap
    };

    explicit EventRequestParser(qint64 bodyCap);

    State feed(QByteArrayView bytes);

    State state() const { return m_state; }
    const QByteArray& method() const { return m_method; }
    const QByteArray& target() const { return m_target; }
    // A header field's value by name, in any case; empty when absent.
    QByteArray field(QByteArrayView name) const;
    bool hasField(QByteArrayView name) const;
    const QByteArray& body() const { return m_body; }

private:
    void readHead(QByteArrayView& bytes);
    bool parseHead(QByteArrayView head);

    qint64 m_bodyCap;
    State m_state = State::head;
    QByteArray m_head;
    QByteArray m_method;
    QByteArray m_target;
    QList<std::pair<QByteArray, QByteArray>> m_fields;
    qint64 m_remaining = 0;
    QByteArray m_body;
};
