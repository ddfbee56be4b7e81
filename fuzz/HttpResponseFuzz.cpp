// Bytes a player sends back on a connection, cut into slices as a socket may hand them over:
// the answer read from them never depends on the cut, and never outgrows its caps.
#include "FuzzInput.h"
#include "sonos/HttpResponseParser.h"

#include <cstdlib>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    if (size == 0)
        return 0;
    // The first byte chooses the slice length and whether the peer closes at the end.
    const qsizetype slice = 1 + (data[0] & 0x3f);
    const bool closes = data[0] & 0x80;
    const QByteArray bytes = fuzzBytes(data + 1, size - 1);
    constexpr qint64 cap = 4096;

    HttpResponseParser whole(cap);
    HttpResponseParser sliced(cap);
    whole.feed(bytes);
    for (qsizetype at = 0; at < bytes.size(); at += slice)
        sliced.feed(QByteArrayView(bytes).sliced(at, std::min(slice, bytes.size() - at)));
    if (closes) {
        whole.closed();
        sliced.closed();
    }
    if (whole.state() != sliced.state() || whole.body() != sliced.body() ||
        whole.body().size() > cap)
        std::abort();
    return 0;
}
