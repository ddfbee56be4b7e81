// The event callback's request reader on bytes alone: whatever the slicing, and its caps.
#include "sonos/EventRequestParser.h"

#include <gtest/gtest.h>

namespace {

using State = EventRequestParser::State;

constexpr qint64 bodyCap = 1000;

TEST(EventRequestParser, ReadsANotifyHoweverItIsSliced)
{
    const QByteArray body = "<e:propertyset><e:property><X>1</X></e:property></e:propertyset>";
    const QByteArray request = "NOTIFY /events HTTP/1.1\r\nHOST: 127.0.0.1:4000\r\n"
                               "NT: upnp:event\r\nsid: uuid:RINCON_1_sub1\r\nContent-Length: " +
                               QByteArray::number(body.size()) + "\r\n\r\n" + body;
    EventRequestParser whole(bodyCap);
    EventRequestParser sliced(bodyCap);
    EXPECT_EQ(whole.feed(request), State::done);
    for (const char c : request)
        sliced.feed(QByteArrayView(&c, 1));
    for (const EventRequestParser* parser : {&whole, &sliced}) {
        EXPECT_EQ(parser->state(), State::done);
        EXPECT_EQ(parser->method(), "NOTIFY");
        EXPECT_EQ(parser->target(), "/events");
        EXPECT_EQ(parser->field("SID"), "uuid:RINCON_1_sub1");
        EXPECT_EQ(parser->body(), body);
    }
}

TEST(EventRequestParser, RefusesWhatIsOverACapOrHasNoKnownEnd)
{
    const QByteArray head = "NOTIFY /events HTTP/1.1\r\n";
    const std::pair<QByteArray, State> cases[] = {
        // Refused on its length alone, before any of the body is read.
        {head + "Content-Length: 10485760\r\n\r\n", State::bodyTooLarge},
        {head + "X: " + QByteArray(EventRequestParser::headCap, 'x'), State::headTooLarge},
        {head + "Content-Length: 5\r\nContent-Length: 6\r\n\r\n", State::badRequest},
        {head + "Transfer-Encoding: chunked\r\n\r\n", State::badRequest},
        {"NOTIFY\r\n\r\n", State::badRequest},
        {"\x16\x03\x01\x02\x01\r\n\r\n", State::badRequest},
    };
    for (const auto& [bytes, state] : cases) {
        SCOPED_TRACE(bytes.left(60).toStdString());
        EventRequestParser parser(bodyCap);
        EXPECT_EQ(parser.feed(bytes), state);
        EXPECT_TRUE(parser.body().isEmpty());
    }
}

} // namespace
