#pragma once

#include <QByteArray>
#include <QFuture>
#include <QHash>
#include <QHostAddress>
#include <QList>
#include <QNetworkInterface>
#include <QSet>
#include <QString>

#include <chrono>

// One SSDP search for zone players: the M-SEARCH goes out three times, 100 ms apart, on every
// usable interface from one UDP socket on an ephemeral port, and the same socket collects the
// unicast answers until the listening window closes. Everything runs on the calling thread's event
// loop. Whatever arrives, the search holds one fixed receive buffer and at most `maxHosts`
// addresses, so a flood of datagrams from the network cannot swell the process.
class SsdpSearch {
public:
    static constexpr quint16 groupPort = 1900;
    static constexpr qint64 maxDatagram = 65535;
    static constexpr int maxHosts = 256;

    // What one search saw, for the log of a curious developer and for tests.
    struct Counters {
        int probesSent = 0;     // one per interface and round the M-SEARCH left on
        int datagrams = 0;      // every datagram read, kept or not
        int ignored = 0;        // empty, oversized, not UTF-8, or not from a zone player
        int hostsRefused = 0;   // zone player answers from new hosts beyond `maxHosts`
        qint64 largestRead = 0; // bytes of the largest datagram taken in
        qint64 bufferBytes = 0; // the receive buffer, allocated once per search
    };

    struct Result {
        QSet<QString> hosts;
        // The household each host named in its answer (X-RINCON-HOUSEHOLD), where it did.
        QHash<QString, QString> households;
        Counters counters;
        bool joined = false; // false: the search could not be sent anywhere
    };

    // Answers once the window has passed (or at once when nothing could be sent).
    static QFuture<Result> run(std::chrono::milliseconds window);

    // The M-SEARCH text, byte for byte.
    static QByteArray probe();
    static QHostAddress groupAddress();

    // The interfaces the search goes out on: every interface that is up, can multicast and
    // has an IPv4 address, loopback excluded, unless loopback is all there is.
    static QList<QNetworkInterface> searchInterfaces();

    // Whether a datagram reads like a zone player's answer: valid UTF-8 that mentions
    // "Sonos" or the zone player device type.
    static bool isZonePlayerAnswer(QByteArrayView datagram);
    // The household an answer names ("Sonos_…"), or empty.
    static QString householdOf(QByteArrayView datagram);

    // The sender written as text, cut before an interface scope ("fe80::1%eth0" → "fe80::1").
    static QString hostText(const QString& address);
};
