#pragma once

#include "Household.h"

#include <QByteArray>
#include <QString>

#include <optional>

namespace emulator {

// The service whose events are offered at an event path ("/MediaRenderer/AVTransport/Event"),
// or empty when the path is no event path of a zone player.
QString serviceAtEventPath(const QByteArray& path);

// The body of an event message for `service` at the player `host`, with every evented
// variable of that service at its value now: an <e:propertyset>. RenderingControl and
// AVTransport carry theirs in one LastChange variable, an escaped <Event> document; the
// group's rendering and the topology send plain variables. Nothing for an unknown player or
// service. The caller holds whatever lock guards `household`.
std::optional<QByteArray> eventBody(Household& household, const QString& host,
                                    const QString& service, quint16 port);

} // namespace emulator
