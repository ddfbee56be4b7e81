// A player's device description, as fetched from /xml/device_description.xml.
#include "FuzzInput.h"
#include "discovery/SonosDiscovery.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    SonosDiscovery::parseDescription(QStringLiteral("127.0.0.11"), fuzzBytes(data, size));
    return 0;
}
