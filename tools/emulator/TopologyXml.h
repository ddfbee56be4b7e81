#pragma once

#include "Household.h"

#include <QString>

namespace emulator {

// The household's zone group state as a player reports it (unescaped):
// <ZoneGroupState><ZoneGroups><ZoneGroup Coordinator=… ID=…><ZoneGroupMember …>
// <Satellite …/></ZoneGroupMember>…</ZoneGroup></ZoneGroups><VanishedDevices/></ZoneGroupState>
// Offline players are left out, as they vanish from a real household.
QString zoneGroupStateXml(const Household& household, quint16 port);

} // namespace emulator
