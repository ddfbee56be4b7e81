#include "TapRecorder.h"
#include "common/LogWatch.h"
#include "common/Wait.h"
#include "keys/EventTap.h"

#include <QFile>
#include <QProcess>
#include <QTemporaryDir>

#include <gtest/gtest.h>

using testing_support::spinUntil;

namespace {

// The real velotide-keyd on a socket of its own. Its seat file names the user running the
// test as the active one. The tap never arms here: on a machine with real keyboards the
// service may hold them, and they must keep typing.
class RealKeyService {
public:
    explicit RealKeyService(const QTemporaryDir& dir)
        : m_socket(dir.filePath(QStringLiteral("keyd.sock")))
        , m_seat(dir.filePath(QStringLiteral("seat0")))
    {
        QFile seat(m_seat);
        if (seat.open(QIODevice::WriteOnly))
            seat.write("ACTIVE_UID=" + QByteArray::number(::getuid()) + "\n");
    }
    ~RealKeyService() { stop(); }

    bool start()
    {
        m_process.setProcessChannelMode(QProcess::ForwardedChannels);
        m_process.start(qEnvironmentVariable("VELOTIDE_KEYD"), arguments());
        // The service renames its socket into place once it listens: there, it answers.
        return spinUntil([&] { return QFile::exists(m_socket); });
    }
    QStringList arguments() const
    {
        return {QStringLiteral("--socket=") + m_socket, QStringLiteral("--seat-file=") + m_seat};
    }
    void stop()
    {
        m_process.terminate();
        m_process.waitForFinished(5000);
    }
    const QString& socketPath() const { return m_socket; }

private:
    QString m_socket;
    QString m_seat;
    QProcess m_process;
};

TEST(RealServiceTap, talksWithTheRealServiceThroughItsWholeLife)
{
    QTemporaryDir dir;
    RealKeyService service(dir);
    ASSERT_TRUE(service.start());
    LogWatch log;

    TapRecorder first;
    auto tap = EventTap::create(first.callbacks(), EventTap::Options{service.socketPath()});
    ASSERT_EQ(tap->backendName(), QStringLiteral("key service"));
    ASSERT_TRUE(tap->install());
    tap->check();
    // Accepted: the service greets, then reports how many keyboards it holds (none here
    // without /dev/input), and the tap asks for its armed answer.
    ASSERT_TRUE(spinUntil([&] { return first.armedAsked > 0; }));
    EXPECT_TRUE(first.lastHealth().first);
    EXPECT_TRUE(tap->setPointerButtonHandler([] {}));

    // One client at a time: a second one is turned away, and trusted all the same.
    TapRecorder second;
    auto other = EventTap::create(second.callbacks(), EventTap::Options{service.socketPath()});
    other->install();
    ASSERT_TRUE(spinUntil([&] {
        return log.count(QStringLiteral("key service refused this session (another client is "
                                        "connected) — keys stay with the desktop")) == 1;
    }));
    EXPECT_EQ(second.lastHealth(), std::pair(true, false));

    // A second service on the same socket stops at once and leaves the first one's alone.
    QProcess again;
    again.start(qEnvironmentVariable("VELOTIDE_KEYD"), service.arguments());
    ASSERT_TRUE(again.waitForFinished(10000));
    EXPECT_EQ(again.exitCode(), 1);
    EXPECT_TRUE(again.readAllStandardError().contains("another instance is already running"));
    ASSERT_TRUE(QFile::exists(service.socketPath())) << "the first service's socket was deleted";

    // The service stops (its socket goes with it): input access is gone. It comes back: the
    // watchdog finds it again.
    service.stop();
    ASSERT_TRUE(spinUntil([&] { return !first.lastHealth().first; }));
    tap->check();
    EXPECT_EQ(log.count(QStringLiteral("Input access was revoked — keys released")), 1);
    const int askedBefore = first.armedAsked;
    ASSERT_TRUE(service.start());
    tap->startWatchdog(std::chrono::milliseconds(50));
    ASSERT_TRUE(spinUntil([&] { return first.armedAsked > askedBefore; }));
    EXPECT_TRUE(first.lastHealth().first);
    EXPECT_EQ(log.count(QStringLiteral("Input access granted")), 1);
}

} // namespace
