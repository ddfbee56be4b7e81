#pragma once

#include <QByteArray>
#include <QList>
#include <QObject>
#include <QString>
#include <QUrl>

#include <memory>
#include <optional>
#include <utility>

class QDir;

// A household of emulated Sonos zone players: each player serves real HTTP on its own
// loopback address (127.0.0.x, port 1400) and answers like a speaker does. It is the
// project's stand-in for real speakers in tests, benchmarks and demos, and it parses what it
// receives on its own terms: it is the client's oracle, never its mirror.
namespace emulator {

// What a player does to the requests it receives, instead of answering them normally.
struct Fault {
    enum class Kind {
        None,      // answer normally
        Delay,     // answer normally, `delayMs` late
        Status,    // answer with `status` (500 carries a UPnP fault body)
        Oversized, // a 200 answer whose body is exactly `bodyBytes` long
        Close,     // close the connection without answering
        Garbage,   // answer with bytes that are not HTTP at all
        Silent,    // keep the connection open and never answer
        Trickle,   // answer normally, the head at once, then one body byte every `delayMs`
        NotImage,  // a 200 answer with an image's content type and a web page for its body
    };
    Kind kind = Kind::None;
    int delayMs = 0;
    int status = 500;
    qint64 bodyBytes = 0;
    // Only requests for this SOAP action ("GetZoneGroupState") or, when it starts with
    // a slash, this path ("/xml/device_description.xml") are affected; empty = all.
    QString only;
};

// One request exactly as a player received it.
struct Request {
    QString host;                                     // the player address it arrived at
    QByteArray method;                                // "POST"
    QByteArray path;                                  // "/MediaRenderer/RenderingControl/Control"
    QList<std::pair<QByteArray, QByteArray>> headers; // names and values as sent, in order
    QByteArray body;
    QByteArray raw;        // head and body, byte for byte as they came off the socket
    QString service;       // from the SOAPACTION header: "urn:...:RenderingControl:1"
    QString action;        // from the SOAPACTION header: "SetVolume"; empty for plain GETs
    qint64 receivedNs = 0; // steady clock, nanoseconds, when the last byte arrived
    // How long its connection had been idle since the previous answer; -1 for the first
    // request of a connection.
    qint64 idleMs = -1;

    QByteArray header(const QByteArray& name) const; // case-insensitive; empty if absent
    QString argument(const QString& name) const;     // text of <name>…</name> in the body
};

// One event message a player sent to a subscriber, and whether the subscriber took it
// (answered 200).
struct EventMessage {
    QString host;    // the player that sent it
    QString service; // "urn:schemas-upnp-org:service:RenderingControl:1"
    QString sid;     // "uuid:RINCON_…_sub0000000001"
    quint32 seq = 0;
    QByteArray body;
    QUrl callback; // where it went
    bool accepted = false;
};

// Ways a player departs from the well-behaved norm, for exercising a client's tolerance.
// Settable from a household file ("quirks") and from code.
struct PlayerQuirks {
    int ssdpReplies = 1;            // datagrams sent for each M-SEARCH (real players repeat)
    bool answersSsdp = true;        // false: never answers a search, still serves HTTP
    bool describesModelName = true; // false: the device description carries no <modelName>
    bool lowerCaseUid = false;      // the topology writes this player's UID in lower case
    // Refuses GetZoneGroupState with UPnP error 501, as players of large households do.
    bool refusesTopology = false;
    // A hostile device: its zone group state marks every other player of the household
    // Invisible, as if they were all bonded satellites.
    bool hidesOthers = false;
    // The output is fixed at line level (a Port, Connect or Amp set so): the volume reads
    // 100, changing it is refused with UPnP error 501, and it takes no part in group volume.
    bool fixedVolume = false;
    // Closes a keep-alive connection idle this long (0: never). A request that arrives on
    // it later is met by the close, as when the player's idle timer fires while the request
    // is on its way: the connection closes without an answer.
    int closesIdleConnectionsAfterMs = 0;
};

// What a player is playing, as its GetPositionInfo (and for a stream GetMediaInfo) answer
// reports it.
struct Track {
    QString uri = {}; // "x-sonos-htastream:RINCON_…:spdif" for a TV input
    QString title = {};
    QString artist = {};
    QString album = {};
    QString albumArt = {};
    // A radio stream's current song, as the station sends it ("Artist - Title").
    QString streamContent = {};
    // A radio stream's station name, reported by GetMediaInfo.
    QString station = {};
    // The track metadata sent verbatim (before escaping) instead of the one made from the
    // fields above, for players and services that send broken documents.
    QString metadata = {};
};

class Emulator : public QObject {
    Q_OBJECT
public:
    explicit Emulator(QObject* parent = nullptr);
    ~Emulator() override;

    // A household description file (see households/). Answers an error text when the
    // file cannot be read or describes an impossible household.
    std::optional<QString> load(const QString& path);
    std::optional<QString> loadJson(const QByteArray& json);

    // Listens on every player's address at `port`; answers an error text on failure.
    std::optional<QString> start(quint16 port = 1400);
    void stop();
    // Also answers SSDP M-SEARCH for zone players on 239.255.255.250:1900, each reply
    // sent from the player's own address.
    std::optional<QString> startSsdp();

    QStringList hosts() const;

    // Everything below may be called from any thread while the emulator runs on its own
    // (setOnline waits for the emulator's thread to act). The record holds at most the
    // latest 100000 requests.
    QList<Request> requests(const QString& host = {}) const;
    void clearRequests();
    // The event messages the players sent to subscribers, oldest first.
    QList<EventMessage> events(const QString& host = {}) const;
    void setFault(const QString& host, const Fault& fault);
    void clearFaults();
    // An offline player closes its listening socket and drops its connections, like a
    // speaker unplugged from the wall; bringing it back online listens again.
    void setOnline(const QString& host, bool online);

    // The players' state, as the household's own app would change it.
    int volume(const QString& host) const;
    void setVolume(const QString& host, int volume);
    bool muted(const QString& host) const;
    void setMuted(const QString& host, bool muted);
    std::optional<bool> eq(const QString& host, const QString& type) const;
    QString transportState(const QString& host) const;
    void setEq(const QString& host, const QString& type, bool on); // only types the model has
    void setTransportState(const QString& host, const QString& state);
    Track track(const QString& host) const;
    void setTrack(const QString& host, const Track& track);
    // The cover art the player serves at /getaa for its track (a small PNG unless set).
    void setArt(const QString& host, const QByteArray& image);
    PlayerQuirks quirks(const QString& host) const;
    void setQuirks(const QString& host, const PlayerQuirks& quirks);
    bool isOnline(const QString& host) const;
    QString uid(const QString& host) const;
    QString roomName(const QString& host) const;
    QString modelName(const QString& host) const;
    QString householdId() const;
    quint16 port() const; // the port the players listen on once started

signals:
    void requestReceived(const emulator::Request& request);

private:
    std::optional<QString> loadJson(const QByteArray& json, const QDir& artFolder);

    struct Private;
    std::unique_ptr<Private> d;
};

// Runs an Emulator on a thread of its own, so that a client under test and the players it
// talks to never share an event loop. The emulator object lives on that thread from
// construction to destruction; its thread-safe members may be called through `operator->`
// from the test's thread (its `requestReceived` signal arrives there queued).
class EmulatorThread {
public:
    EmulatorThread();
    ~EmulatorThread();
    std::optional<QString> start(const QString& householdFile, quint16 port = 1400,
                                 bool ssdp = false);
    std::optional<QString> startJson(const QByteArray& json, quint16 port = 1400,
                                     bool ssdp = false);
    Emulator* operator->() const;
    Emulator* get() const;

private:
    struct Private;
    std::unique_ptr<Private> d;
};

} // namespace emulator
