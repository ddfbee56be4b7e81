#include "keyservice/Protocol.h"

#include <gtest/gtest.h>

using namespace keyd;

TEST(KeydProtocol, everyMessageSurvivesTheRoundTrip)
{
    for (ServiceMessage m : std::vector<ServiceMessage>{
             Hello{}, Hello{7, HelloStatus::busy}, Hello{1, HelloStatus::notActiveSession},
             Health{65535}, KeyReport{MediaKey::soundUp, false, false},
             KeyReport{MediaKey::soundDown, true, false}, KeyReport{MediaKey::mute, false, true},
             KeyReport{MediaKey::soundUp, true, true}, PointerButton{0x112}}) {
        auto back = decodeServiceMessage(encode(m));
        ASSERT_TRUE(back.has_value());
        EXPECT_EQ(*back, m);
    }
    for (ClientMessage m : std::vector<ClientMessage>{
             SetArmed{true}, SetArmed{false}, SetPointerButtons{true}, SetPointerButtons{false}}) {
        auto back = decodeClientMessage(encode(m));
        ASSERT_TRUE(back.has_value());
        EXPECT_EQ(*back, m);
    }
}

TEST(KeydProtocol, malformedAndUnknownRecordsDecodeToNothing)
{
    EXPECT_FALSE(decodeServiceMessage(Record{0x10, 0, 1, 0, 'X', 'K', 'Y', 'D'})); // bad magic
    EXPECT_FALSE(decodeServiceMessage(Record{0x10, 9, 1, 0, 'V', 'K', 'Y', 'D'})); // bad status
    EXPECT_FALSE(decodeServiceMessage(Record{0x12, 2, 0, 0, 0, 0, 0, 0}));         // not a key
    EXPECT_FALSE(decodeServiceMessage(Record{0x12, 0, 4, 0, 0, 0, 0, 0}));         // bad flags
    EXPECT_FALSE(decodeServiceMessage(Record{0x7f, 0, 0, 0, 0, 0, 0, 0}));         // unknown
    EXPECT_FALSE(decodeServiceMessage(encode(SetArmed{true}))); // wrong direction
    EXPECT_FALSE(decodeClientMessage(Record{0x01, 2, 0, 0, 0, 0, 0, 0}));
    EXPECT_FALSE(decodeClientMessage(encode(Health{1})));
}

TEST(KeydProtocol, recordBufferReassemblesPartialReads)
{
    std::vector<std::uint8_t> stream;
    for (int i = 0; i < 50; ++i) {
        Record r = encode(Health{static_cast<std::uint16_t>(i)});
        stream.insert(stream.end(), r.begin(), r.end());
    }
    RecordBuffer buffer;
    std::vector<int> seen;
    std::size_t at = 0;
    std::size_t chunk = 1;
    while (at < stream.size()) {
        std::size_t n = std::min(chunk, stream.size() - at);
        buffer.append(std::span(stream).subspan(at, n));
        at += n;
        chunk = chunk % 13 + 1; // chunks of 1..13 bytes, never aligned for long
        while (auto r = buffer.take())
            seen.push_back(std::get<Health>(*decodeServiceMessage(*r)).devicesGrabbed);
    }
    ASSERT_EQ(seen.size(), 50u);
    for (int i = 0; i < 50; ++i)
        EXPECT_EQ(seen[static_cast<std::size_t>(i)], i);
    EXPECT_EQ(buffer.pending(), 0u);

    buffer.append(std::span(stream).first(5));
    EXPECT_FALSE(buffer.take());
    EXPECT_EQ(buffer.pending(), 5u);
}
