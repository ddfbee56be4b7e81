// Update checks against a feed server on loopback that the test runs itself.
#include "housekeeping/Updates.h"

#include "common/Wait.h"

#include <QTcpServer>
#include <QTcpSocket>

#include <gtest/gtest.h>

using namespace std::chrono_literals;

namespace {

QByteArray response(const QByteArray& head, const QByteArray& body)
{
    return "HTTP/1.1 " + head + "\r\nContent-Length: " + QByteArray::number(body.size()) +
           "\r\n\r\n" + body;
}

QByteArray feed(const QByteArray& version)
{
    return response("200 OK", R"({"version": ")" + version +
                                  R"(", "page": "https://example.org/v", "note": "Faster"})");
}

// Answers by path; "/slow" never answers.
class FeedServer : public QTcpServer {
public:
    FeedServer()
    {
        listen(QHostAddress::LocalHost);
        connect(this, &QTcpServer::newConnection, this, [this] {
            QTcpSocket* socket = nextPendingConnection();
            connect(socket, &QTcpSocket::readyRead, socket, [socket] {
                static const QMap<QByteArray, QByteArray> answers{
                    {"/newer", feed("1.10")},
                    {"/same", feed("1.4")},
                    {"/older", feed("1.3.9")},
                    {"/broken", response("200 OK", R"({"version": "1.)")},
                    {"/huge", response("200 OK", QByteArray(1 << 20, ' '))},
                    {"/loop", response("302 Found\r\nLocation: /loop", {})}};
                if (socket->peek(socket->bytesAvailable()).contains("\r\n\r\n"))
                    socket->write(answers.value(socket->readAll().split(' ').value(1)));
            });
        });
    }
};

// What one check against `path` told, against version 1.4.0.
QString check(const FeedServer& server, const char* path, bool atStart = false)
{
    const QUrl feed(QStringLiteral("http://127.0.0.1:%1%2").arg(server.serverPort()).arg(path));
    Updates updates({feed, QStringLiteral("1.4.0"), 64 * 1024, 2s});
    QString told;
    QObject::connect(&updates, &Updates::newerVersion, [&](const UpdateFeed& f) {
        told = QStringLiteral("newer %1 %2 %3").arg(f.version, f.page.toString(), f.note);
    });
    QObject::connect(&updates, &Updates::upToDate, [&] { told = QStringLiteral("up to date"); });
    QObject::connect(&updates, &Updates::checkFailed, [&](const QString& why) { told = why; });
    if (atStart)
        updates.start(true);
    else
        updates.checkNow();
    testing_support::spinUntil([&] { return !told.isEmpty(); });
    return told;
}

TEST(Updates, ACheckAtStartFindsANewerVersionComparedByNumbers)
{
    FeedServer server;
    EXPECT_EQ(check(server, "/newer", true), "newer 1.10 https://example.org/v Faster");
}

TEST(Updates, TheSameOrAnOlderVersionIsUpToDate)
{
    FeedServer server;
    EXPECT_EQ(check(server, "/same"), "up to date");
    EXPECT_EQ(check(server, "/older"), "up to date");
}

TEST(Updates, ABrokenHugeSlowOrLoopingFeedEndsInAReason)
{
    FeedServer server;
    EXPECT_EQ(check(server, "/broken"), "The update feed is not valid.");
    EXPECT_EQ(check(server, "/huge"), "The update feed is not valid.");
    EXPECT_EQ(check(server, "/slow"), "The update server did not answer in time.");
    EXPECT_EQ(check(server, "/loop"), "The update server could not be reached.");
}

} // namespace
