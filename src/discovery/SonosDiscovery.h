#pragma once

#include "sonos/SonosDevice.h"

#include <QByteArray>
#include <QFuture>
#include <QList>
#include <QSet>
#include <QString>

// Finding the zone players on the local network: one SSDP search, then each answering
// host's device description, turned into `SonosDevice` values sorted by room name. Every
// operation answers on the calling thread's event loop and never fails as a whole: hosts
// that do not describe themselves are left out. Callers go through
// `SonosDiscovery::Coordinator::shared().zones(...)`, which shares and caches sweeps.
namespace SonosDiscovery {

// The M-SEARCH datagram for zone players, byte for byte.
QByteArray probe();

// One full sweep: search for `timeout` seconds, then describe every host at once.
QFuture<QList<SonosDevice>> browse(double timeout);

// Describes every host concurrently; hosts that fail are dropped. Sorted by name.
QFuture<QList<SonosDevice>> describeAll(const QSet<QString>& hosts);

// Reads http://host:1400/xml/device_description.xml.
QFuture<SonosResult<SonosDevice>> describe(const QString& host);

// The device a description body names: its root device's UDN (without "uuid:"),
// roomName and modelName. Any of the three missing is a bad response.
SonosResult<SonosDevice> parseDescription(const QString& host, const QByteArray& body);

// Sorts by room name in plain code-point order, so "Den" comes before "den"; equal names
// by host.
void sortByName(QList<SonosDevice>& devices);

// Whether the model has an optical input of its own (soundbars). The test is deliberately
// broad: any model whose name contains "ray" counts.
bool hasNativeOptical(const QString& model);

// Whether the model never leads a room of its own: a sub plays only bonded to another
// player, and a Boost or Bridge only carries the household's network.
bool neverLeadsARoom(const QString& model);

// Whether the model leads a home theatre (the soundbars and the Amp): of the players that
// share its room name, it is the one the others are bonded to.
bool leadsHomeTheatre(const QString& model);

} // namespace SonosDiscovery
