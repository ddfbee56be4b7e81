#include "keyd/ClientLink.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
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

    // A connected client, accepted and greeted.
    int connectClient()
    {
        int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        socketPath().copy(address.sun_path, sizeof address.sun_path - 1);
        EXPECT_EQ(connect(fd, reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
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

} // namespace
