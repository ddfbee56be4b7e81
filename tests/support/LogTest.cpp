#include "support/Log.h"

#include "common/Files.h"

#include <QFile>
#include <QRegularExpression>
#include <QTemporaryDir>

#include <gtest/gtest.h>

#include <thread>
#include <unistd.h>

using testing_support::readFile;
using testing_support::writeFile;

namespace {

class LogFileTest : public ::testing::Test {
protected:
    QTemporaryDir dir;
    QString path = dir.filePath("state/velotide/velotide.log");
};

TEST_F(LogFileTest, FirstLineCreatesFolderAndOwnerOnlyFileAndEachMessageIsOneVisibleLine)
{
    LogFile log(path);
    testing::internal::CaptureStderr();
    log.info(QStringLiteral("Reconnected to Kit\x1b[2Jchen\r\nvolume keys armed\0 at 10.0.0.2"));
    const std::string err = testing::internal::GetCapturedStderr();
    log.flush();

    const QByteArray text = readFile(path);
    const QRegularExpression stamp(R"(^\d{4}-\d\d-\d\d \d\d:\d\d:\d\d $)");
    EXPECT_TRUE(stamp.match(QString::fromUtf8(text.left(20))).hasMatch()) << text.constData();
    EXPECT_EQ(text.mid(20), R"(Reconnected to Kit\e[2Jchen\r\nvolume keys armed\x00 at 10.0.0.2)"
                            "\n");
    EXPECT_EQ(QByteArray::fromStdString(err), text);

    EXPECT_EQ(QFile::permissions(path),
              QFile::ReadOwner | QFile::WriteOwner | QFile::ReadUser | QFile::WriteUser);
}

TEST_F(LogFileTest, LinesGoToStderrImmediatelyAndToTheFileInOrder)
{
    LogFile log(path);
    testing::internal::CaptureStderr();
    std::vector<std::thread> writers;
    for (int t = 0; t < 4; ++t) {
        writers.emplace_back([&log, t] {
            for (int i = 0; i < 200; ++i)
                log.info(QStringLiteral("writer %1 line %2").arg(t).arg(i));
        });
    }
    for (auto& w : writers)
        w.join();
    const std::string err = testing::internal::GetCapturedStderr();
    log.flush();

    const QList<QByteArray> lines = readFile(path).split('\n');
    ASSERT_EQ(lines.size(), 801); // 800 lines and the empty piece after the last feed
    std::array<int, 4> next{};
    for (const QByteArray& l : lines.first(800)) {
        const auto m = QRegularExpression(R"(writer (\d) line (\d+)$)").match(QString::fromUtf8(l));
        ASSERT_TRUE(m.hasMatch()) << l.constData();
        const int t = m.captured(1).toInt();
        EXPECT_EQ(m.captured(2).toInt(), next[t]++) << "lines of one thread reordered";
    }
    EXPECT_EQ(std::count(err.begin(), err.end(), '\n'), 800);
}

TEST_F(LogFileTest, RotatesOnlyPastTwoMebibytes)
{
    const auto logOneLine = [&](const char* text) {
        LogFile log(path);
        log.info(text);
        log.flush();
    };
    ASSERT_TRUE(writeFile(path, QByteArray(LogFile::rotationSize, 'a')));
    ASSERT_TRUE(writeFile(path + ".1", "old generation\n"));
    logOneLine("at the limit");
    EXPECT_EQ(QFileInfo(path).size(), LogFile::rotationSize + 33); // one line over, not rotated
    EXPECT_EQ(readFile(path + ".1"), "old generation\n");

    ASSERT_TRUE(writeFile(path, QByteArray(LogFile::rotationSize + 1, 'b')));
    logOneLine("fresh start");
    EXPECT_EQ(QFileInfo(path + ".1").size(), LogFile::rotationSize + 1);
    EXPECT_TRUE(readFile(path).endsWith(" fresh start\n"));
    EXPECT_EQ(readFile(path).count('\n'), 1);
}

TEST_F(LogFileTest, TailKeepsTheEmptyPieceAfterTheLastFeed)
{
    LogFile log(path);
    EXPECT_EQ(log.tail(60), "(no log file yet)");

    QByteArray ten;
    for (int i = 1; i <= 10; ++i)
        ten += "line " + QByteArray::number(i) + '\n';
    ASSERT_TRUE(writeFile(path, ten));
    EXPECT_EQ(log.tail(60), QString::fromUtf8(ten));
    EXPECT_EQ(log.tail(3), "line 9\nline 10\n");
    EXPECT_EQ(log.tail(0), "");

    ASSERT_TRUE(writeFile(path, "valid\n\xff\xfe broken\n"));
    EXPECT_EQ(log.tail(60), "(no log file yet)");
}

TEST_F(LogFileTest, StopDrainsTheQueueThenSilencesEverything)
{
    LogFile log(path);
    for (int i = 0; i < 500; ++i)
        log.info(QStringLiteral("before %1").arg(i));
    log.stop();
    // Lines still queued at the stop are dropped, never written later: once stop()
    // returns the file no longer changes, so the uninstaller can delete it safely.
    const QByteArray atStop = readFile(path);
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
    EXPECT_EQ(readFile(path), atStop);
    const QList<QByteArray> lines = atStop.split('\n');
    for (qsizetype i = 0; i + 1 < lines.size(); ++i)
        EXPECT_TRUE(lines[i].endsWith("before " + QByteArray::number(i)));

    testing::internal::CaptureStderr();
    log.info("after the stop");
    log.flush();
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
    EXPECT_EQ(readFile(path), atStop);
}

// That the shared log writes where filePath() says, and reads back from there, every test
// watching its lines with LogWatch shows.
TEST(LogTest, SharedLogLivesInTheXdgStateFolder)
{
    QTemporaryDir state;
    qputenv("XDG_STATE_HOME", state.path().toLocal8Bit());
    EXPECT_EQ(Log::filePath(), state.filePath("velotide/velotide.log"));
}

} // namespace
