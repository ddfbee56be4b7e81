#pragma once

#include "sonos/SonosError.h"

#include <QByteArray>
#include <QFuture>
#include <QNetworkRequest>

#include <chrono>

// Every network read of the speaker stack goes through here: one shared client per thread
// (5 s request and 15 s whole-transfer time-outs, no cache, no cookies) and a 512 KiB cap
// on the body, so a misbehaving device on the network cannot swell the process.
namespace CappedReader {

constexpr qint64 cap = 512 * 1024;

struct Response {
    int status = -1; // -1: the answer was not HTTP
    QByteArray body;
};

// How long a read may take: `request` without any progress, `resource` in all.
struct Timeouts {
    std::chrono::milliseconds request{5000};
    std::chrono::milliseconds resource{15000};
};

// What a transport time-out reports, whichever limit was hit.
QString timedOutText();

// GET when `body` is null, POST otherwise. Runs on the calling thread, which must have an
// event loop; the future finishes there. A status other than 200 is a Response, not an
// error; a body over `cap` is refused with badResponse.
QFuture<SonosResult<Response>> read(QNetworkRequest request, QByteArray body = {});
QFuture<SonosResult<Response>> read(QNetworkRequest request, QByteArray body, Timeouts timeouts);

} // namespace CappedReader
