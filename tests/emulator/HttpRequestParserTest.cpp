// The players record each request byte for byte as it came off the socket, which the client
// tests compare with what the client meant to send; the parser is what cuts them out.
#include "emulator/HttpRequestParser.h"

#include <gtest/gtest.h>

using emulator::HttpRequestParser;

namespace {

const QByteArray first = "POST /a HTTP/1.1\r\nHost: x\r\nSOAPACTION: \"s#A\"\r\n"
                         "Content-Length: 5\r\n\r\nhello";
const QByteArray second = "GET /b HTTP/1.1\r\nhost: x\r\n\r\n";

TEST(HttpRequestParser, CutsRequestsOutOfAnyPatternOfReads)
{
    for (int chunk : {1, 3, 7, 50, 1000}) {
        HttpRequestParser parser;
        QList<emulator::Request> taken;
        const QByteArray stream = first + second;
        for (qsizetype at = 0; at < stream.size(); at += chunk) {
            parser.feed(stream.mid(at, chunk));
            while (auto r = parser.take())
                taken << *r;
        }
        ASSERT_EQ(taken.size(), 2) << "chunk " << chunk;
        EXPECT_EQ(taken[0].method, "POST");
        EXPECT_EQ(taken[0].path, "/a");
        EXPECT_EQ(taken[0].body, "hello");
        EXPECT_EQ(taken[0].raw, first);
        EXPECT_EQ(taken[0].header("soapaction"), "\"s#A\"");
        ASSERT_EQ(taken[0].headers.size(), 3);
        EXPECT_EQ(taken[0].headers[1].first, "SOAPACTION") << "names kept as sent";
        EXPECT_EQ(taken[1].raw, second);
        EXPECT_TRUE(taken[1].body.isEmpty());
        EXPECT_EQ(parser.bufferedBytes(), 0);
        EXPECT_FALSE(parser.error());
    }
}

TEST(HttpRequestParser, RefusesGarbageAndOversizeWithoutGrowing)
{
    QByteArray manyHeaders = "GET / HTTP/1.1\r\nHost: x\r\n";
    for (int i = 0; i < 100; ++i)
        manyHeaders += "X-" + QByteArray::number(i) + ": 1\r\n";
    const struct {
        QByteArray bytes;
        int status;
    } cases[] = {
        {"\x16\x03\x01garbage\r\n\r\n", 400},
        {"GET / HTTP/1.1\r\nno colon here\r\n\r\n", 400},
        {"GET / HTTP/1.1\r\n\r\n", 400}, // HTTP/1.1 without Host
        {"GET / SPDY/3\r\nHost: x\r\n\r\n", 400},
        {"POST / HTTP/1.1\r\nHost: x\r\nContent-Length: -4\r\n\r\n", 400},
        {"POST / HTTP/1.1\r\nHost: x\r\nContent-Length: 12abc\r\n\r\n", 400},
        {"POST / HTTP/1.1\r\nHost: x\r\nContent-Length: 99999999999\r\n\r\n", 413},
        {"POST / HTTP/1.1\r\nHost: x\r\nTransfer-Encoding: chunked\r\n\r\n", 501},
        {"GET / HTTP/1.1\r\nHost: x\r\nX: " + QByteArray(20000, 'a') + "\r\n\r\n", 431},
        {manyHeaders + "\r\n", 431},
        {QByteArray(20000, 'G'), 431}, // never a blank line
    };
    for (const auto& c : cases) {
        HttpRequestParser parser;
        parser.feed(c.bytes);
        EXPECT_FALSE(parser.take().has_value());
        ASSERT_TRUE(parser.error().has_value()) << c.bytes.left(60).toStdString();
        EXPECT_EQ(parser.error()->status, c.status) << c.bytes.left(60).toStdString();
        parser.feed(QByteArray(100000, 'x'));
        EXPECT_EQ(parser.bufferedBytes(), 0);
    }
}

TEST(HttpRequestParser, ToleratesBlankLinesBetweenRequests)
{
    HttpRequestParser parser;
    parser.feed("\r\n" + second);
    EXPECT_TRUE(parser.take().has_value());
}

} // namespace
