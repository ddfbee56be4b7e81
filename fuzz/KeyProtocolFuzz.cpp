// A stream of bytes on the key service's socket, in either direction: cut into records as
// they arrive, each decoded; whatever decodes must encode to a record that decodes to the
// same message (bytes a message does not use are not kept).
#include "keyservice/Protocol.h"

#include <algorithm>
#include <cstdlib>
#include <span>

namespace {

template <typename Message, typename Decode>
void checkRoundTrip(const std::optional<Message>& message, Decode decode)
{
    if (message && decode(keyd::encode(*message)) != message)
        std::abort();
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    keyd::RecordBuffer buffer;
    // Arriving in uneven pieces, as a stream socket may deliver them.
    for (std::size_t at = 0; at < size;) {
        const std::size_t piece = std::min<std::size_t>(size - at, 1 + data[at] % 13);
        buffer.append(std::span(data + at, piece));
        at += piece;
        while (const auto record = buffer.take()) {
            checkRoundTrip(keyd::decodeClientMessage(*record), keyd::decodeClientMessage);
            checkRoundTrip(keyd::decodeServiceMessage(*record), keyd::decodeServiceMessage);
        }
    }
    return 0;
}
