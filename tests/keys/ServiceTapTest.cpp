#include "FakeKeyService.h"
#include "TapRecorder.h"
#include "common/LogWatch.h"
#include "common/Wait.h"
#include "keys/DismissMonitor.h"
#include "keys/EventTap.h"

#include <QTemporaryDir>

#include <gtest/gtest.h>

#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

using keyd::ClientMessage;
using testing_support::spinFor;
using testing_support::spinUntil;
using Key = TapRecorder::Key;
using MediaKey = EventTap::MediaKey;

namespace {

class ServiceTapTest : public ::testing::Test {
protected:
    QString path() const { return m_dir.filePath(QStringLiteral("keyd.sock")); }

    std::unique_ptr<EventTap> makeTap()
    {
        return EventTap::create(recorder.callbacks(), EventTap::Options{path()});
    }

    bool waitForHealth(std::pair<bool, bool> wanted)
    {
        return spinUntil([&] { return recorder.lastHealth() == wanted; });
    }

    QTemporaryDir m_dir;
    FakeKeyService service{path()};
    TapRecorder recorder;
    LogWatch log;
};

const ClientMessage armedOn = keyd::SetArmed{true};
const ClientMessage armedOff = keyd::SetArmed{false};

TEST_F(ServiceTapTest, acceptedClientIsHealthyAndPushesItsArmedStateOnlyWhenItChanges)
{
    ASSERT_TRUE(service.start());
    recorder.armedAnswer = true;
    auto tap = makeTap();
    EXPECT_TRUE(tap->install());
    ASSERT_TRUE(waitForHealth({true, true}));
    ASSERT_TRUE(spinUntil([&] { return service.received.size() == 1; }));
    EXPECT_EQ(service.received[0], armedOn);

    tap->reevaluate();
    spinFor(std::chrono::milliseconds(100));
    EXPECT_EQ(service.received.size(), 1u) << "an unchanged answer is not sent again";

    recorder.armedAnswer = false;
    tap->reevaluate();
    ASSERT_TRUE(spinUntil([&] { return service.received.size() == 2; }));
    EXPECT_EQ(service.received[1], armedOff);

    // The service losing its last keyboard is an inactive tap, not a lost one.
    service.send(keyd::Health{0});
    ASSERT_TRUE(waitForHealth({true, false}));
    EXPECT_EQ(log.count(QStringLiteral("Volume keys now control the Sonos")), 1);
}

TEST_F(ServiceTapTest, keyReportsSurviveAnySplitOfTheStreamAndUnknownRecordsAreSkipped)
{
    ASSERT_TRUE(service.start());
    auto tap = makeTap();
    tap->install();
    ASSERT_TRUE(waitForHealth({true, true}));

    QByteArray stream;
    stream += FakeKeyService::toBytes(keyd::encode(keyd::KeyReport{keyd::MediaKey::soundUp}));
    stream += QByteArray("\x7f\x01\x02\x03\x04\x05\x06\x07", 8); // a later version's message
    stream += FakeKeyService::toBytes(
        keyd::encode(keyd::KeyReport{keyd::MediaKey::soundDown, true, true}));
    stream += FakeKeyService::toBytes(keyd::encode(keyd::KeyReport{keyd::MediaKey::mute}));
    for (qsizetype at = 0; at < stream.size(); at += 3) {
        service.sendBytes(stream.mid(at, 3));
        spinFor(std::chrono::milliseconds(5));
    }

    const std::vector<Key> expected{{MediaKey::soundUp, false, false},
                                    {MediaKey::soundDown, true, true},
                                    {MediaKey::mute, false, false}};
    ASSERT_TRUE(spinUntil([&] { return recorder.keys.size() >= 3; }));
    spinFor(std::chrono::milliseconds(50));
    EXPECT_EQ(recorder.keys, expected);
}

TEST_F(ServiceTapTest, refusalsAreLoggedOnceAndAnAcceptedRetryGrantsInputAccess)
{
    ASSERT_TRUE(service.start());
    service.hello.status = keyd::HelloStatus::busy;
    auto tap = makeTap();
    tap->install();
    ASSERT_TRUE(spinUntil([&] { return service.connections == 1 && !tap->isEnabled(); }));
    spinFor(std::chrono::milliseconds(50));
    EXPECT_EQ(recorder.lastHealth(), std::pair(true, false)) << "busy: installed, but not ours";
    tap->check();
    ASSERT_TRUE(spinUntil([&] { return service.connections == 2; })) << "busy is retried";

    service.hello.status = keyd::HelloStatus::notActiveSession;
    tap->check();
    ASSERT_TRUE(spinUntil([&] { return !tap->isTrusted(); }));
    EXPECT_EQ(recorder.lastHealth(), std::pair(false, false));
    tap->check();
    ASSERT_TRUE(spinUntil([&] { return service.connections == 4; })) << "trust is asked again";

    // A service of another version is not used either.
    service.hello = keyd::Hello{keyd::kProtocolVersion + 1, keyd::HelloStatus::accepted};
    tap->check();
    const QString otherVersion =
        QStringLiteral("key service speaks protocol version 2, not 1 — keys stay with the desktop");
    ASSERT_TRUE(spinUntil([&] { return log.count(otherVersion) == 1; }));
    EXPECT_FALSE(tap->isTrusted());

    service.hello = keyd::Hello{};
    tap->check();
    ASSERT_TRUE(waitForHealth({true, true}));
    tap->check();
    spinFor(std::chrono::milliseconds(50));

    const QStringList lines = log.lines();
    EXPECT_EQ(lines.count(QStringLiteral(
                  "key service refused this session (another client is connected) — keys stay "
                  "with the desktop")),
              1);
    EXPECT_EQ(lines.count(QStringLiteral(
                  "key service refused this session (not the active session) — keys stay with "
                  "the desktop")),
              1);
    EXPECT_EQ(lines.count(QStringLiteral("Input access granted")), 1);
}

TEST_F(ServiceTapTest, aDroppedConnectionIsReconnectedAtOnceButOnlyOncePerWatchdogPass)
{
    ASSERT_TRUE(service.start());
    recorder.armedAnswer = true;
    auto tap = makeTap();
    tap->install();
    ASSERT_TRUE(spinUntil([&] { return service.received.size() == 1; }));

    service.dropClient();
    ASSERT_TRUE(
        spinUntil([&] { return service.connections == 2 && service.received.size() == 2; }));
    EXPECT_EQ(service.received[1], armedOn) << "the new connection is told again";
    EXPECT_TRUE(waitForHealth({true, true}));
    EXPECT_EQ(log.count(QStringLiteral("event tap reconnected after the key service dropped it")),
              1);

    // Dropped again before the next watchdog pass: that pass reconnects, not the drop.
    service.dropClient();
    ASSERT_TRUE(waitForHealth({true, false}));
    spinFor(std::chrono::milliseconds(100));
    EXPECT_EQ(service.connections, 2);
    tap->check();
    EXPECT_TRUE(waitForHealth({true, true}));
    EXPECT_EQ(service.connections, 3);
    EXPECT_EQ(log.count(QStringLiteral("event tap found disabled — re-enabling")), 1);
}

// A service that died leaves its socket file behind, and connecting to it is refused.
TEST_F(ServiceTapTest, aDeadServiceIsRebuiltByTheWatchdogAndPicksUpWhenItReturns)
{
    ASSERT_TRUE(service.start());
    auto tap = makeTap();
    tap->install();
    tap->check(); // the first pass: trust now known
    ASSERT_TRUE(waitForHealth({true, true}));

    service.stop();
    const int stale = ::socket(AF_UNIX, SOCK_STREAM, 0);
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    qstrncpy(address.sun_path, QFile::encodeName(path()).constData(), sizeof(address.sun_path));
    ASSERT_EQ(::bind(stale, reinterpret_cast<sockaddr*>(&address), sizeof(address)), 0);
    ASSERT_TRUE(waitForHealth({true, false}));

    tap->check();
    EXPECT_EQ(recorder.lastHealth(), std::pair(true, false));
    const QStringList lines = log.lines();
    const qsizetype found = lines.indexOf(QStringLiteral("event tap found disabled — re-enabling"));
    ASSERT_GE(found, 0) << lines.join(u'\n').toStdString();
    EXPECT_EQ(lines.value(found + 1), QStringLiteral("re-enable failed — rebuilding the tap"));

    tap->check();
    EXPECT_EQ(log.count(QStringLiteral("event tap found disabled — re-enabling")), 1)
        << "once rebuilt, later passes only try to install";

    ::close(stale);
    ASSERT_TRUE(service.start());
    tap->startWatchdog(std::chrono::milliseconds(50));
    EXPECT_TRUE(waitForHealth({true, true}));
}

TEST_F(ServiceTapTest, dismissMonitorUsesTheServicesPointerButtonsWithoutX11)
{
    ASSERT_TRUE(service.start());
    auto tap = makeTap();
    tap->install();
    ASSERT_TRUE(waitForHealth({true, true}));

    int clicks = 0;
    DismissMonitor monitor;
    QObject::connect(&monitor, &DismissMonitor::clicked, [&] { ++clicks; });
    monitor.start();
    EXPECT_FALSE(monitor.isRunning()) << "no source yet";
    monitor.setKeyServiceTap(tap.get());
    monitor.start();
    monitor.start();
    ASSERT_TRUE(monitor.isRunning());
    const ClientMessage wanted = keyd::SetPointerButtons{true};
    ASSERT_TRUE(spinUntil([&] { return !service.received.empty(); }));
    EXPECT_EQ(service.received, std::vector<ClientMessage>{wanted}) << "asked for once";

    service.send(keyd::PointerButton{0x110});
    service.send(keyd::KeyReport{keyd::MediaKey::mute});
    service.send(keyd::PointerButton{0x111});
    ASSERT_TRUE(spinUntil([&] { return clicks == 2 && recorder.keys.size() == 1; }));

    monitor.stop();
    const ClientMessage unwanted = keyd::SetPointerButtons{false};
    ASSERT_TRUE(spinUntil([&] { return service.received.size() == 2; }));
    EXPECT_EQ(service.received[1], unwanted);
    EXPECT_FALSE(monitor.isRunning());
}

} // namespace
