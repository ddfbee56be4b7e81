#include "discovery/ZoneScan.h"

#include "discovery/ZoneTopology.h"

namespace ZoneScan {

QFuture<QList<SonosDevice>> visibleZones(SonosDiscovery::Coordinator& discovery, double timeout)
{
    return discovery.zones(timeout)
        .then([](const QList<SonosDevice>& zones) { return ZoneTopology::visible(zones); })
        .unwrap();
}

QFuture<QList<ZoneState>> zoneStates(SonosDiscovery::Coordinator& discovery, double timeout)
{
    return visibleZones(discovery, timeout)
        .then([](const QList<SonosDevice>& zones) { return ZoneTopology::states(zones); })
        .unwrap();
}

} // namespace ZoneScan
