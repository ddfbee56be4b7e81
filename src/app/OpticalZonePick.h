#pragma once

#include "discovery/ZoneState.h"

#include <QList>
#include <QString>

#include <optional>

// The zone this computer's optical cable most likely feeds, for a first run: the first zone
// playing its line input that has an optical input of its own, else the first with an
// optical input, else the first playing its line input. None when no zone qualifies.
std::optional<QString> pickOpticalZone(const QList<ZoneState>& states);
