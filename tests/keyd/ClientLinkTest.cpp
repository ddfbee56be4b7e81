#include "keyd/ClientLink.h"

#include "keyd/RefusalLog.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <poll.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

using namespace keyd;

namespace {

// A service's socket in a folder of its own, whose seat file names the test's user.
class KeydClientLink : public ::testing::Test {
protected:
    void SetUp() override
    {
        char folder[] = "/tmp/keyd-link-XXXXXX";
        ASSERT_TRUE(mkdtemp(folder));
        dir = folder;
        std::ofstream(dir + "/seat0") << "ACTIVE_UID=" << getuid() << "\n";
        auto listening = ClientLink::listen(socketPath(), dir + "/seat0");
        ASSERT_TRUE(listening) << listening.error().message;
        link = std::move(listening.value());
    }
    void TearDown() override
    {
        link.reset();
        std::filesystem::remove_all(dir);
    }
    std::string socketPath() const { return dir + "/keyd.sock"; }

    // A connection the service has not yet accepted; -1 when its queue is full.
    int connectOnly(int flags = 0)
    {
        int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | flags, 0);
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        socketPath().copy(address.sun_path, sizeof address.sun_path - 1);
        if (connect(fd, reinterpret_cast<sockaddr*>(&address), sizeof address) == 0)
            return fd;
        close(fd);
        return -1;
    }
    // A connected client, accepted and greeted.
    int connectClient()
    {
        const int fd = connectOnly();
        link->acceptClient();
        Record hello;
        EXPECT_EQ(recv(fd, hello.data(), hello.size(), 0), 8);
        EXPECT_EQ(decodeServiceMessage(hello), ServiceMessage(Hello{}));
        return fd;
    }
    void send(int fd, const ClientMessage& message)
    {
        const Record record = encode(message);
        ASSERT_EQ(::send(fd, record.data(), record.size(), 0), 8);
        link->receive();
    }

    std::string dir;
    std::unique_ptr<ClientLink> link;
};

TEST_F(KeydClientLink, armingAndButtonsLastAsLongAsTheClient)
{
    const int client = connectClient();
    EXPECT_FALSE(link->isArmed()) << "a new client starts disarmed";
    send(client, SetArmed{true});
    send(client, SetPointerButtons{true});
    EXPECT_TRUE(link->isArmed());
    EXPECT_TRUE(link->wantsButtons());
    send(client, SetArmed{false});
    EXPECT_FALSE(link->isArmed());

    send(client, SetArmed{true});
    close(client);
    link->receive();
    EXPECT_FALSE(link->isArmed()) << "the keys go back to the desktop with the client";
    EXPECT_FALSE(link->wantsButtons());
}

TEST_F(KeydClientLink, aClientThatStopsReadingIsDropped)
{
    const int client = connectClient();
    send(client, SetArmed{true});
    int reports = 0;
    while (link->isArmed() && reports < 1000000) {
        link->report(KeyReport{MediaKey::mute});
        ++reports;
    }
    EXPECT_FALSE(link->isArmed());
    EXPECT_GT(reports, 10);
    close(client);
}

// Whoever connects, and however much a client sends, one round of the service's loop does a
// bounded amount of that work before it turns back to the keyboards.
TEST_F(KeydClientLink, eachRoundServesAFewConnectionsAndReadsThenComesBackForTheRest)
{
    const int client = connectClient();
    std::vector<int> crowd; // all refused: the connected client is busy
    for (int i = 0; i < 3; ++i)
        crowd.push_back(connectOnly());
    const auto answered = [&] {
        return std::count_if(crowd.begin(), crowd.end(), [](int fd) {
            pollfd p{fd, POLLIN, 0};
            return poll(&p, 1, 0) == 1;
        });
    };
    link->acceptClient();
    EXPECT_EQ(answered(), 3) << "a small crowd is served in one round";
    while (crowd.size() < 100) {
        const int fd = connectOnly(SOCK_NONBLOCK);
        if (fd < 0)
            break; // the queue is full
        crowd.push_back(fd);
    }
    const auto all = static_cast<long>(crowd.size());
    link->acceptClient();
    EXPECT_LT(answered(), all) << "a full queue is not";
    EXPECT_TRUE(link->isAcceptResting(std::chrono::steady_clock::now()))
        << "and the service sleeps a moment before it looks at the queue again";
    for (int round = 0; round < 100 && answered() < all; ++round)
        link->acceptClient();
    EXPECT_EQ(answered(), all) << "but every connection is answered in later rounds";

    std::vector<std::uint8_t> flood;
    for (int i = 0; i < 2000; ++i) {
        const Record record = encode(SetArmed{i % 2 == 1});
        flood.insert(flood.end(), record.begin(), record.end());
    }
    ASSERT_EQ(::send(client, flood.data(), flood.size(), 0), static_cast<ssize_t>(flood.size()));
    link->receive();
    int waiting = 0;
    ASSERT_EQ(ioctl(link->clientFd(), FIONREAD, &waiting), 0);
    EXPECT_GT(waiting, 0) << "a flood is read a little per round";
    for (int round = 0; round < 1000 && waiting > 0; ++round) {
        link->receive();
        ioctl(link->clientFd(), FIONREAD, &waiting);
    }
    EXPECT_TRUE(link->isArmed()) << "and its last word counts";
    for (int fd : crowd)
        close(fd);
    close(client);
}

TEST(KeydRefusalLog, logsTheFirstRefusalThenOneLineAnIntervalWithTheCount)
{
    using namespace std::chrono_literals;
    RefusalLog log(10s);
    const auto start = RefusalLog::Clock::time_point{} + 1h;
    EXPECT_EQ(log.refused(1000, HelloStatus::notActiveSession, start),
              "refused a client of uid 1000 — not the active session's user");
    for (int i = 0; i < 999; ++i)
        EXPECT_FALSE(log.refused(1000, HelloStatus::notActiveSession, start + 9s));
    EXPECT_FALSE(log.flush(start + 9s));
    EXPECT_EQ(log.flush(start + 10s), "refused 999 more clients since the last line");
    EXPECT_FALSE(log.flush(start + 30s)) << "nothing new, nothing logged";
    EXPECT_FALSE(log.refused(1000, HelloStatus::busy, start + 15s));
    EXPECT_EQ(log.refused(0, HelloStatus::busy, start + 21s),
              "refused a client of uid 0 — another client is connected (refused 1 more client "
              "since the last line)");
}

} // namespace
