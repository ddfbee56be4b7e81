#pragma once

#include "sonos/SonosError.h"

#include <QByteArray>
#include <QFuture>
#include <QNetworkRequest>

#include <chrono>

// Every network read of the speaker stack goes through here, over HTTP/1.1 connections of
// its own (kept alive per thread for a few seconds; 5 s request and 15 s whole-transfer
// time-outs; no cache, no cookies, no proxy, no redirects followed) with caps of 16 KiB on the
// header section and 512 KiB on the body, so that a misbehaving device on the network can
// neither swell the process nor keep it reading after the answer was given up.
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
