#pragma once

#include "discovery/Coordinator.h"
#include "discovery/ZoneState.h"
#include "sonos/SonosDevice.h"

#include <QFuture>
#include <QList>

// The one way to look at the household: a sweep (shared with everyone else who asks through
// `discovery`), the bonded satellites taken out, and, when wanted, what each zone plays. The
// answers come from the thread the coordinator lives on.
namespace ZoneScan {

// The zones that may be offered as speakers, in the order the sweep found them.
QFuture<QList<SonosDevice>> visibleZones(SonosDiscovery::Coordinator& discovery, double timeout);

// The same zones with what each plays now and its optical input; sorted by name.
QFuture<QList<ZoneState>> zoneStates(SonosDiscovery::Coordinator& discovery, double timeout);

} // namespace ZoneScan
