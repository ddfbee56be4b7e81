// The snapshot handed to the tray and the settings file written behind the controller's back.
#include "app/SettingsSaver.h"
#include "app/StatusPublisher.h"
#include "common/Wait.h"

#include <QFile>
#include <QTemporaryDir>

#include <gtest/gtest.h>

using namespace std::chrono_literals;
using testing_support::spinFor;
using testing_support::spinUntil;

namespace {

class StatusPublisherTest : public ::testing::Test {
protected:
    StatusPublisherTest()
    {
        QObject::connect(&publisher, &StatusPublisher::buildRequested,
                         [this](quint64 generation) { builds.append(generation); });
        QObject::connect(
            &publisher, &StatusPublisher::published,
            [this](const PanelSnapshot& snapshot) { shown.append(snapshot.generation); });
    }

    static PanelSnapshot builtFor(quint64 generation)
    {
        PanelSnapshot snapshot;
        snapshot.generation = generation;
        return snapshot;
    }

    StatusPublisher publisher;
    QList<quint64> builds;
    QList<quint64> shown;
};

TEST_F(StatusPublisherTest, ABurstIsOneBuildAndASnapshotBegunBeforeTheNewestRequestIsNeverShown)
{
    publisher.request();
    publisher.request();
    publisher.request();
    ASSERT_TRUE(spinUntil([&] { return !builds.isEmpty(); }));
    spinFor(50ms);
    EXPECT_EQ(builds, QList<quint64>{3});
    publisher.request(); // while the third is being built
    publisher.publish(builtFor(3));
    EXPECT_TRUE(shown.isEmpty());
    EXPECT_EQ(builds, (QList<quint64>{3, 4}));
    publisher.publish(builtFor(4));
    EXPECT_EQ(shown, QList<quint64>{4});
    EXPECT_EQ(publisher.last()->generation, 4u);
}

// The open panel looks again every second; a build that takes longer is still shown.
TEST_F(StatusPublisherTest, APeriodicRefreshIsAnsweredByTheBuildUnderWay)
{
    publisher.request();
    ASSERT_TRUE(spinUntil([&] { return !builds.isEmpty(); }));
    publisher.refresh();
    publisher.publish(builtFor(1));
    EXPECT_EQ(shown, QList<quint64>{1});
    publisher.refresh(); // nothing under way now: a build of its own
    EXPECT_TRUE(spinUntil([&] { return builds.size() == 2; }));
}

TEST(SettingsSaver, AFailedSaveIsFlaggedUntilTheNextOneSucceedsAndTheLastSaveWins)
{
    QTemporaryDir dir;
    // A file where the settings folder should be makes every save fail.
    const QString folder = dir.filePath(QStringLiteral("velotide"));
    ASSERT_TRUE(QFile(folder).open(QIODevice::WriteOnly));
    const QString path = folder + QStringLiteral("/settings.json");
    SettingsSaver saver(path);
    QList<bool> flags;
    QObject::connect(&saver, &SettingsSaver::failedChanged,
                     [&flags](bool failed) { flags.append(failed); });
    Settings settings;
    saver.save(settings);
    ASSERT_TRUE(spinUntil([&] { return saver.hasFailed(); }));

    ASSERT_TRUE(QFile::remove(folder));
    for (const char* speaker : {"Kitchen", "Den", "Office"}) {
        settings.speaker = QString::fromUtf8(speaker);
        saver.save(settings);
    }
    ASSERT_TRUE(spinUntil([&] { return !saver.hasFailed(); }));
    EXPECT_EQ(flags, (QList<bool>{true, false}));
    EXPECT_TRUE(spinUntil(
        [&] { return Settings::peek(path).settings.speaker == QStringLiteral("Office"); }));
}

} // namespace
