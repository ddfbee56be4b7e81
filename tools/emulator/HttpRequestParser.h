#pragma once

#include "emulator/Emulator.h"

#include <QByteArray>

#include <optional>

namespace emulator {

// Cuts HTTP/1.1 requests out of the bytes of one connection, however they were split
// across reads. Bounded: a head or body beyond the limits is an error, never growth.
class HttpRequestParser {
public:
    struct Limits {
        int maxHeadBytes = 16 * 1024;
        int maxHeaders = 64;
        qint64 maxBodyBytes = 1024 * 1024;
    };
    // Why the connection cannot go on; answered with `status` and then closed.
    struct Error {
        int status = 400;
        QByteArray reason;
    };

    HttpRequestParser();
    explicit HttpRequestParser(Limits limits);

    void feed(const QByteArray& bytes);
    // The next complete request (method, path, headers, body, raw), if one has arrived.
    // After an error nothing more is taken.
    std::optional<Request> take();
    const std::optional<Error>& error() const { return m_error; }
    qint64 bufferedBytes() const { return m_buffer.size(); }

private:
    std::optional<Request> fail(int status, const char* reason);
    bool parseHead(const QByteArray& head, Request& request);

    Limits m_limits;
    QByteArray m_buffer;
    std::optional<Error> m_error;
};

} // namespace emulator
