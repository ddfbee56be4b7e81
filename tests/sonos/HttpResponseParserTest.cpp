// The answer reader on bytes alone: framing, caps and connection reuse, whatever the slicing.
#include "sonos/HttpResponseParser.h"

#include <gtest/gtest.h>

namespace {

using State = HttpResponseParser::State;

constexpr qint64 bodyCap = 1000;

// The same bytes whole and one at a time must end alike.
std::pair<HttpResponseParser, HttpResponseParser> readBothWays(const QByteArray& bytes,
                                                               bool closeAfter = false)
{
    HttpResponseParser whole(bodyCap);
    HttpResponseParser sliced(bodyCap);
    whole.feed(bytes);
    for (const char c : bytes)
        sliced.feed(QByteArrayView(&c, 1));
    if (closeAfter) {
        whole.closed();
        sliced.closed();
    }
    return {whole, sliced};
}

TEST(HttpResponseParser, EveryFramingYieldsTheBodyAndSaysWhetherTheConnectionLasts)
{
    struct Case {
        QByteArray bytes;
        bool closeAfter;
        int status;
        QByteArray body;
        bool reusable;
    };
    const Case cases[] = {
        {"HTTP/1.1 200 OK\r\nContent-Length: 5\r\n\r\nhello", false, 200, "hello", true},
        {"HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n"
         "3;x=y\r\nhel\r\n2\r\nlo\r\n0\r\nTrailer: t\r\n\r\n",
         false, 200, "hello", true},
        {"HTTP/1.1 100 Continue\r\n\r\nHTTP/1.1 500 Oops\nContent-Length: 2\n\nno", false, 500,
         "no", true},
        {"HTTP/1.1 200 OK\r\nConnection: close\r\nContent-Length: 2\r\n\r\nok", false, 200, "ok",
         false},
        {"HTTP/1.0 200 OK\r\nContent-Length: 2\r\n\r\nok", false, 200, "ok", false},
        {"HTTP/1.1 200 OK\r\n\r\nuntil the close", true, 200, "until the close", false},
        {"HTTP/1.1 204 No Content\r\n\r\n", false, 204, "", true},
        {"HTTP/1.1 200 OK\r\nContent-Length: 2\r\n\r\nokEXTRA", false, 200, "ok", false},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.bytes.toStdString());
        const auto [whole, sliced] = readBothWays(c.bytes, c.closeAfter);
        for (const HttpResponseParser& parser : {whole, sliced}) {
            EXPECT_EQ(parser.state(), State::done);
            EXPECT_EQ(parser.status(), c.status);
            EXPECT_EQ(parser.body(), c.body);
            EXPECT_EQ(parser.connectionReusable(), c.reusable);
        }
    }
}

TEST(HttpResponseParser, BrokenOrOversizedAnswersStopAtTheirCaps)
{
    // A header section exactly at the cap, its ending empty line included.
    const QByteArray start = "HTTP/1.1 200 OK\r\nContent-Length: 0\r\nX: ";
    const QByteArray headAtCap =
        start + QByteArray(HttpResponseParser::headCap - start.size() - 4, 'a');
    const std::pair<QByteArray, State> cases[] = {
        {"SSH-2.0-OpenSSH_9.2\r\n", State::notHttp},
        {"HTTP/1.1 abc\r\n\r\n", State::notHttp},
        {headAtCap + "\r\n\r\n", State::done},
        {headAtCap + "a\r\n\r\n", State::headTooLarge},
        {"HTTP/1.1 200 OK" + QByteArray(100000, 'K'), State::headTooLarge},
        {"HTTP/1.1 200 OK\r\nContent-Length: 2\r\nContent-Length: 3\r\n\r\nok", State::badFraming},
        {"HTTP/1.1 200 OK\r\nContent-Length: -1\r\n\r\n", State::badFraming},
        {"HTTP/1.1 200 OK\r\nContent-Length: 1001\r\n\r\n", State::bodyTooLarge},
        {"HTTP/1.1 200 OK\r\n\r\n" + QByteArray(1001, 'b'), State::bodyTooLarge},
        {"HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n3e9\r\n", State::bodyTooLarge},
        {"HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\nzz\r\n", State::badFraming},
        {"HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n" + QByteArray(300, '0'),
         State::badFraming},
        {"HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n1\r\nabc\r\n", State::badFraming},
    };
    for (const auto& [bytes, state] : cases) {
        SCOPED_TRACE(bytes.left(60).toStdString());
        const auto [whole, sliced] = readBothWays(bytes);
        EXPECT_EQ(whole.state(), state);
        EXPECT_EQ(sliced.state(), state);
    }
}

} // namespace
