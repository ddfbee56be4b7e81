#include "TapRecorder.h"
#include "common/Files.h"
#include "common/LogWatch.h"
#include "common/Wait.h"
#include "keys/EventTap.h"
#include "keys/KeyCapture.h"

#include <QFile>
#include <QProcess>
#include <QTemporaryDir>

#include <gtest/gtest.h>

using testing_support::spinUntil;
using namespace std::chrono_literals;

namespace {

QStringList serviceArguments(const QTemporaryDir& dir)
{
    const QString seat = dir.filePath(QStringLiteral("seat0"));
    testing_support::writeFile(seat, "ACTIVE_UID=" + QByteArray::number(::getuid()) + "\n");
    return {QStringLiteral("--socket=") + dir.filePath(QStringLiteral("keyd.sock")),
            QStringLiteral("--seat-file=") + seat};
}

// The real velotide-keyd on a socket of its own, whose seat file names the user running the
// test as the active one. The tap never arms here: on a machine with real keyboards the
// service may hold them, and they must keep typing.
TEST(RealServiceTap, talksWithTheRealServiceThroughItsWholeLife)
{
    QTemporaryDir dir;
    const QString socket = dir.filePath(QStringLiteral("keyd.sock"));
    const QStringList arguments = serviceArguments(dir);
    QProcess service;
    service.setProcessChannelMode(QProcess::ForwardedChannels);
    service.start(qEnvironmentVariable("VELOTIDE_KEYD"), arguments);
    // The service renames its socket into place once it listens: there, it answers.
    ASSERT_TRUE(spinUntil([&] { return QFile::exists(socket); }));
    LogWatch log;

    TapRecorder first;
    auto tap = EventTap::create(first.callbacks(), EventTap::Options{socket});
    ASSERT_EQ(tap->backendName(), QStringLiteral("key service"));
    ASSERT_TRUE(tap->install());
    tap->check();
    // Accepted: the service greets, then reports how many keyboards it holds (none here
    // without /dev/input), and the tap asks for its armed answer.
    ASSERT_TRUE(spinUntil([&] { return first.armedAsked > 0; }));
    EXPECT_TRUE(first.lastHealth().first);

    // A second service on the same socket fails to start, so that systemd sees the failure, and
    // leaves the first one's socket alone.
    QProcess again;
    again.start(qEnvironmentVariable("VELOTIDE_KEYD"), arguments);
    ASSERT_TRUE(again.waitForFinished(10000));
    EXPECT_EQ(again.exitCode(), 1);

    // One client at a time: a second one is turned away, and trusted all the same.
    TapRecorder second;
    auto other = EventTap::create(second.callbacks(), EventTap::Options{socket});
    other->install();
    ASSERT_TRUE(spinUntil([&] {
        return log.count(QStringLiteral("key service refused this session (another client is "
                                        "connected) — keys stay with the desktop")) == 1;
    }));
    EXPECT_EQ(second.lastHealth(), std::pair(true, false));

    // The service stops (its socket goes with it): input access is gone.
    service.terminate();
    ASSERT_TRUE(service.waitForFinished(5000));
    ASSERT_TRUE(spinUntil([&] { return !first.lastHealth().first; }));
    tap->check();
    EXPECT_EQ(log.count(QStringLiteral("Input access was revoked — keys released")), 1);
}

// A service started after the application takes over the keys as soon as its socket appears,
// and the fallback (none here, without an X server) comes back when it stops. The watchdog
// never runs within the test: the socket's folder alone drives the switch.
TEST(RealServiceTap, captureFollowsTheServiceComingAndGoing)
{
    QTemporaryDir dir;
    TapRecorder recorder;
    KeyCapture capture(recorder.callbacks(), {dir.filePath(QStringLiteral("keyd.sock"))});
    std::vector<EventTap*> handedOver;
    QObject::connect(&capture, &KeyCapture::tapReplaced,
                     [&](EventTap* tap) { handedOver.push_back(tap); });
    capture.start(1h);
    ASSERT_EQ(capture.tap().backendName(), QStringLiteral("none"));
    LogWatch log;

    QProcess service;
    service.setProcessChannelMode(QProcess::ForwardedChannels);
    service.start(qEnvironmentVariable("VELOTIDE_KEYD"), serviceArguments(dir));
    ASSERT_TRUE(spinUntil([&] { return recorder.armedAsked > 0; }));
    EXPECT_EQ(capture.tap().backendName(), QStringLiteral("key service"));
    EXPECT_EQ(handedOver, std::vector{&capture.tap()});
    EXPECT_TRUE(recorder.lastHealth().first);
    EXPECT_EQ(log.count(QStringLiteral("Input access granted")), 1);

    service.terminate();
    ASSERT_TRUE(service.waitForFinished(5000));
    ASSERT_TRUE(spinUntil([&] { return capture.tap().backendName() == QStringLiteral("none"); }));
    EXPECT_EQ(handedOver.size(), 2u);
    EXPECT_EQ(recorder.lastHealth(), std::pair(false, false));
    EXPECT_EQ(log.count(QStringLiteral("Input access was revoked — keys released")), 1);
}

} // namespace
