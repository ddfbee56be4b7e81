#pragma once

#include "Household.h"
#include "support/Expected.h"

#include <QByteArray>
#include <QString>

namespace emulator {

// Reads a household description (JSON) and checks that it describes a possible
// household. The error text names the offending entry ("players[2].uid: …").
Expected<Household, QString> parseHousehold(const QByteArray& json);

} // namespace emulator
