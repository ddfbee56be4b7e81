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
