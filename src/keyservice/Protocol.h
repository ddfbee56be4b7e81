#pragma once

// The wire protocol between velotide-keyd (the privileged key service) and the application.
// Plain C++20, no Qt, header-only, so that the service and the application's client share it.
//
// Transport: a Unix stream socket (default kDefaultSocketPath; the service takes --socket=PATH,
// the client takes the path in its constructor, for tests). Every message in either direction
// is one record of exactly kRecordSize bytes, so a reader only has to cut the byte stream into
// records (RecordBuffer does that across partial reads). Multi-byte fields are little-endian.
//
//   byte 0     message type (MessageType)
//   byte 1..7  payload, per type below; unused bytes are zero
//
// Conversation:
//   1. On connect the service sends Hello{version, status}. When status is not accepted the
//      service closes the connection right after it. A client that sees another version or a
//      bad magic closes the connection.
//   2. An accepted client then gets Health at once and again whenever the number of devices
//      grabbed with a working clone changes.
//   3. The client sends SetArmed whenever its decision changes (a new client starts disarmed),
//      and SetPointerButtons to start or stop the pointer button reports (starts off).
//   4. While armed, each key-down of the three volume keys is swallowed and sent as KeyReport
//      (auto-repeats included, isRepeat set); the matching key-ups are swallowed and not sent.
//   5. While pointer buttons are wanted, each button press of a pointer device is sent as
//      PointerButton (presses only; the pointer devices are read, never grabbed).
//
// Rules the service keeps: one client at a time (a second connection gets Hello{busy} and is
// closed, unless the connected client no longer belongs to the active session, in which case
// the old one is dropped and the new one accepted). A client that disconnects or stops reading
// (its socket buffer full) is dropped and the keys go back to the desktop at once.
// Both sides ignore records of an unknown type, so later versions may add messages.

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <variant>
#include <vector>

namespace keyd {

inline constexpr const char* kDefaultSocketPath = "/run/velotide-keyd.sock";
inline constexpr std::uint16_t kProtocolVersion = 1;
inline constexpr std::size_t kRecordSize = 8;
// "VKYD" in Hello's bytes 4..7: tells a client it reached the right kind of socket.
inline constexpr std::uint32_t kHelloMagic = 0x44594b56;

using Record = std::array<std::uint8_t, kRecordSize>;

enum class MessageType : std::uint8_t {
    // client -> service
    setArmed = 0x01,
    setPointerButtons = 0x02,
    // service -> client
    hello = 0x10,
    health = 0x11,
    keyReport = 0x12,
    pointerButton = 0x13,
};

// The raw values are those of the application's MediaKey, so a report maps one to one.
enum class MediaKey : std::uint8_t {
    soundUp = 0,
    soundDown = 1,
    mute = 7,
};

enum class HelloStatus : std::uint8_t {
    accepted = 0,
    notActiveSession = 1, // the peer's user is not the user of the active seat0 session
    busy = 2,             // another client of the active session is connected
};

// --- client -> service -------------------------------------------------------------------

// [0]=0x01 [1]=armed (0|1)
struct SetArmed {
    bool armed = false;
    bool operator==(const SetArmed&) const = default;
};

// [0]=0x02 [1]=wanted (0|1)
struct SetPointerButtons {
    bool wanted = false;
    bool operator==(const SetPointerButtons&) const = default;
};

using ClientMessage = std::variant<SetArmed, SetPointerButtons>;

// --- service -> client -------------------------------------------------------------------

// [0]=0x10 [1]=status [2..3]=version [4..7]=kHelloMagic
struct Hello {
    std::uint16_t version = kProtocolVersion;
    HelloStatus status = HelloStatus::accepted;
    bool operator==(const Hello&) const = default;
};

// [0]=0x11 [2..3]=devicesGrabbed: devices grabbed now, each with a working clone. Zero means
// the service sees no volume keys at all ("tap inactive").
struct Health {
    std::uint16_t devicesGrabbed = 0;
    bool operator==(const Health&) const = default;
};

// [0]=0x12 [1]=key [2]=flags (bit 0 fine: a Shift key is held on any keyboard; bit 1 isRepeat:
// an auto-repeat, evdev value 2). Key-downs only.
struct KeyReport {
    MediaKey key = MediaKey::soundUp;
    bool fine = false;
    bool isRepeat = false;
    bool operator==(const KeyReport&) const = default;
};

// [0]=0x13 [2..3]=button: the evdev code of the pressed button (BTN_LEFT 0x110 ...).
struct PointerButton {
    std::uint16_t button = 0;
    bool operator==(const PointerButton&) const = default;
};

using ServiceMessage = std::variant<Hello, Health, KeyReport, PointerButton>;

// --- encoding ----------------------------------------------------------------------------

namespace detail {

inline void put16(Record& r, std::size_t at, std::uint16_t v)
{
    r[at] = static_cast<std::uint8_t>(v & 0xff);
    r[at + 1] = static_cast<std::uint8_t>(v >> 8);
}

inline void put32(Record& r, std::size_t at, std::uint32_t v)
{
    for (std::size_t i = 0; i < 4; ++i)
        r[at + i] = static_cast<std::uint8_t>((v >> (8 * i)) & 0xff);
}

inline std::uint16_t get16(const Record& r, std::size_t at)
{
    return static_cast<std::uint16_t>(r[at] | (r[at + 1] << 8));
}

inline std::uint32_t get32(const Record& r, std::size_t at)
{
    std::uint32_t v = 0;
    for (std::size_t i = 0; i < 4; ++i)
        v |= static_cast<std::uint32_t>(r[at + i]) << (8 * i);
    return v;
}

inline std::optional<bool> getBool(const Record& r, std::size_t at)
{
    if (r[at] > 1)
        return std::nullopt;
    return r[at] == 1;
}

inline Record recordOf(MessageType type)
{
    Record r{};
    r[0] = static_cast<std::uint8_t>(type);
    return r;
}

} // namespace detail

// The key numbered as on the wire (0 up, 1 down, 7 mute); nothing for any other number.
inline std::optional<MediaKey> mediaKeyFromRaw(std::uint8_t raw)
{
    switch (raw) {
    case 0:
        return MediaKey::soundUp;
    case 1:
        return MediaKey::soundDown;
    case 7:
        return MediaKey::mute;
    default:
        return std::nullopt;
    }
}

inline Record encode(const SetArmed& m)
{
    Record r = detail::recordOf(MessageType::setArmed);
    r[1] = m.armed ? 1 : 0;
    return r;
}

inline Record encode(const SetPointerButtons& m)
{
    Record r = detail::recordOf(MessageType::setPointerButtons);
    r[1] = m.wanted ? 1 : 0;
    return r;
}

inline Record encode(const Hello& m)
{
    Record r = detail::recordOf(MessageType::hello);
    r[1] = static_cast<std::uint8_t>(m.status);
    detail::put16(r, 2, m.version);
    detail::put32(r, 4, kHelloMagic);
    return r;
}

inline Record encode(const Health& m)
{
    Record r = detail::recordOf(MessageType::health);
    detail::put16(r, 2, m.devicesGrabbed);
    return r;
}

inline Record encode(const KeyReport& m)
{
    Record r = detail::recordOf(MessageType::keyReport);
    r[1] = static_cast<std::uint8_t>(m.key);
    r[2] = static_cast<std::uint8_t>((m.fine ? 1 : 0) | (m.isRepeat ? 2 : 0));
    return r;
}

inline Record encode(const PointerButton& m)
{
    Record r = detail::recordOf(MessageType::pointerButton);
    detail::put16(r, 2, m.button);
    return r;
}

inline Record encode(const ClientMessage& m)
{
    return std::visit([](const auto& v) { return encode(v); }, m);
}

inline Record encode(const ServiceMessage& m)
{
    return std::visit([](const auto& v) { return encode(v); }, m);
}

// --- decoding: none for an unknown type or an impossible field; the caller skips it --------

inline std::optional<ClientMessage> decodeClientMessage(const Record& r)
{
    switch (static_cast<MessageType>(r[0])) {
    case MessageType::setArmed:
        if (auto armed = detail::getBool(r, 1))
            return SetArmed{*armed};
        return std::nullopt;
    case MessageType::setPointerButtons:
        if (auto wanted = detail::getBool(r, 1))
            return SetPointerButtons{*wanted};
        return std::nullopt;
    default:
        return std::nullopt;
    }
}

// A Hello whose magic is wrong decodes to none; a Hello of another version decodes, and the
// client compares the version itself.
inline std::optional<ServiceMessage> decodeServiceMessage(const Record& r)
{
    switch (static_cast<MessageType>(r[0])) {
    case MessageType::hello:
        if (detail::get32(r, 4) != kHelloMagic || r[1] > 2)
            return std::nullopt;
        return Hello{detail::get16(r, 2), static_cast<HelloStatus>(r[1])};
    case MessageType::health:
        return Health{detail::get16(r, 2)};
    case MessageType::keyReport: {
        auto key = mediaKeyFromRaw(r[1]);
        if (!key || r[2] > 3)
            return std::nullopt;
        return KeyReport{*key, (r[2] & 1) != 0, (r[2] & 2) != 0};
    }
    case MessageType::pointerButton:
        return PointerButton{detail::get16(r, 2)};
    default:
        return std::nullopt;
    }
}

// Cuts a byte stream into records across partial reads: append() what read() returned, then
// take() records until none is left.
class RecordBuffer {
public:
    void append(std::span<const std::uint8_t> bytes)
    {
        m_bytes.erase(m_bytes.begin(), m_bytes.begin() + static_cast<std::ptrdiff_t>(m_start));
        m_start = 0;
        m_bytes.insert(m_bytes.end(), bytes.begin(), bytes.end());
    }

    std::optional<Record> take()
    {
        if (m_bytes.size() - m_start < kRecordSize)
            return std::nullopt;
        Record r;
        for (std::size_t i = 0; i < kRecordSize; ++i)
            r[i] = m_bytes[m_start + i];
        m_start += kRecordSize;
        return r;
    }

private:
    std::vector<std::uint8_t> m_bytes;
    std::size_t m_start = 0;
};

} // namespace keyd
