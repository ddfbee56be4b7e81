#pragma once

#include <QByteArray>
#include <QList>

#include <utility>

namespace emulator {

// What a player answers to one request, before it becomes bytes.
struct HttpAnswer {
    int status = 200;
    QByteArray contentType = "text/xml; charset=\"utf-8\"";
    QByteArray body;
    // Further header fields, after the usual ones ("SID", "TIMEOUT" for a subscription).
    QList<std::pair<QByteArray, QByteArray>> headers = {};
};

// What a connection does with a request: write these bytes (after a delay, then perhaps
// close), close without a word, or fall silent for good. With `perByteMs`, the bytes go out
// one at a time, that far apart.
struct Reply {
    enum class Kind { Send, Close, Silent };
    Kind kind = Kind::Send;
    QByteArray bytes;
    bool closeAfter = false;
    int delayMs = 0;
    int perByteMs = 0;
};

QByteArray reasonPhrase(int status);
// The status line and headers a zone player writes, then the body.
QByteArray serialize(const HttpAnswer& answer, const QByteArray& server, bool closeAfter);
// A plain answer for a request the player cannot serve at the HTTP level (404, 405, …).
HttpAnswer plainStatus(int status);

} // namespace emulator
