// A GetZoneGroupState answer: the hidden players it marks, the group of a player and where
// that group's volume goes, and the players that remain once the marked ones are hidden.
#include "FuzzInput.h"
#include "discovery/TopologyScan.h"
#include "discovery/ZoneTopology.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    const QString answer = fuzzText(data, size);
    const QList<SonosDevice> devices{
        {"127.0.0.11", "RINCON_38420B91A2C401400", "Living Room", "Sonos Arc"},
        {"127.0.0.12", "RINCON_38420B5D17E201400", "Living Room", "Sonos Sub"},
        {"127.0.0.15", "RINCON_48A6B8C3F20A01400", "Kitchen", "Sonos One"}};
    ZoneTopology::invisibleUIDs(answer);
    ZoneTopology::withoutSatellites(devices, answer);
    for (const SonosDevice& device : devices)
        ZoneTopology::groupTarget(device, devices, answer);
    return 0;
}
