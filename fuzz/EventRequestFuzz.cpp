// Bytes a peer sends to the event callback, cut into slices as a socket may hand them over:
// the request read from them never depends on the cut, and never outgrows its caps.
#include "FuzzInput.h"
#include "sonos/EventRequestParser.h"

#include <cstdlib>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    if (size == 0)
        return 0;
    const qsizetype slice = 1 + (data[0] & 0x3f);
    const QByteArray bytes = fuzzBytes(data + 1, size - 1);
    constexpr qint64 cap = 4096;

    EventRequestParser whole(cap);
    EventRequestParser sliced(cap);
    whole.feed(bytes);
    for (qsizetype at = 0; at < bytes.size(); at += slice)
        sliced.feed(QByteArrayView(bytes).sliced(at, std::min(slice, bytes.size() - at)));
    if (whole.state() != sliced.state() || whole.body() != sliced.body() ||
        whole.field("SID") != sliced.field("SID") || whole.body().size() > cap)
        std::abort();
    return 0;
}
