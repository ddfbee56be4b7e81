#pragma once

#include "HttpAnswer.h"
#include "emulator/Emulator.h"

namespace emulator {

// Whether a fault applies to a request: `only` empty, the request's action, or a path
// prefix when it begins with a slash.
bool faultApplies(const Fault& fault, const Request& request);

// Whether the player does what the request asks before the fault shapes its answer
// (a late or oversized answer still comes from a player that acted).
bool faultLetsPlayerAct(const Fault& fault);

// The reply a connection carries out: the normal answer, or what the fault makes of it.
Reply faultReply(const Fault& fault, const HttpAnswer& normal, const QByteArray& server,
                 bool closeAfter);

// Whether the client asked to close after this request (Connection: close, or HTTP/1.0
// without keep-alive).
bool wantsClose(const Request& request);

} // namespace emulator
