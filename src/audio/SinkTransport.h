#pragma once

#include <QHash>
#include <QString>

// What the sound server tells about one sink that matters for its transport word.
struct SinkFacts {
    QHash<QString, QString> properties; // the sink's property list (device.bus, ...)
    QString driver;                     // the module that made it, e.g. "module-raop-sink.c"
    QString activePort;                 // the name of its active port, if it has ports
};

// The transport word of a sink: "airplay", "bluetooth", "usb", "spdif", "hdmi",
// "displayport", "thunderbolt", "aggregate", "virtual", "built-in" or "other".
QString transportWord(const SinkFacts& sink);
