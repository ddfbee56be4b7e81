#pragma once

#include "Household.h"
#include "HttpAnswer.h"

#include <QByteArray>

namespace emulator {

// Answers GET /getaa?s=1&u=<escaped track URI> at `player`, as a zone player serves the cover
// art of what its group plays: the art of the coordinator's track when `u` names that track
// (its URI, or the URI its own albumArt path names), else 404. Called with the lock held.
HttpAnswer coverArt(const Household& household, const Player& player, const QByteArray& target);

// The art a player serves when none was given: a 16×16 PNG.
QByteArray defaultArt();

} // namespace emulator
