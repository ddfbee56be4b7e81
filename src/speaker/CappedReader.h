#pragma once

#include "speaker/SonosError.h"

#include <QByteArray>
#include <QFuture>
#include <QNetworkRequest>

// Every network read of the speaker stack goes through here: one shared client per thread
// (5 s request and 15 s whole-transfer time-outs, no cache, no cookies) and a 512 KiB cap
// on the body, so a misbehaving device on the network cannot swell the process.
namespace CappedReader {

constexpr qint64 cap = 512 * 1024;

struct Response {
    int status = -1; // -1: the answer was not HTTP
    QByteArray body;
};

// GET when `body` is null, POST otherwise.
QFuture<SonosResult<Response>> read(QNetworkRequest request, QByteArray body = {});

} // namespace CappedReader
