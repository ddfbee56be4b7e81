#pragma once

#include "Household.h"

#include <QByteArray>

namespace emulator {

// /xml/device_description.xml of a zone player: the root ZonePlayer device with its
// services, and the embedded MediaServer and MediaRenderer devices.
QByteArray deviceDescriptionXml(const Player& player, const QString& householdId, quint16 port);

// "Linux UPnP/1.0 Sonos/79.1-56030 (ZPS19)", as players write it in HTTP and SSDP.
QByteArray serverHeader(const Player& player);

} // namespace emulator
