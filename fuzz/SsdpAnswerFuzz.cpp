// One datagram received in answer to the search: whether it reads like a zone player's, and
// the household it names.
#include "FuzzInput.h"
#include "discovery/SsdpSearch.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    const QByteArray datagram = fuzzBytes(data, size);
    if (SsdpSearch::isZonePlayerAnswer(datagram))
        SsdpSearch::householdOf(datagram);
    return 0;
}
