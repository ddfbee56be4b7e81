// The desktop settings are read through the real gsettings tool, with GLib's key-file
// back end in a private folder so the test owns every value.
#include "desktop/DisplayOptions.h"

#include "common/Wait.h"
#include "desktop/KdeAnimationSetting.h"

#include <QFile>
#include <QProcess>
#include <QTemporaryDir>

#include <gtest/gtest.h>

using testing_support::spinFor;
using testing_support::spinUntil;

namespace {

class DisplayOptionsTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        qputenv("GSETTINGS_BACKEND", "keyfile");
        qputenv("XDG_CONFIG_HOME", config.path().toLocal8Bit());
    }

    static void set(const QString& schema, const QString& key, const QString& value)
    {
        ASSERT_EQ(QProcess::execute("gsettings", {"set", schema, key, value}), 0);
    }

    QTemporaryDir config;
};

TEST_F(DisplayOptionsTest, ReadsTheSettingsAtStartAndFollowsTheirChanges)
{
    set("org.gnome.desktop.interface", "enable-animations", "false");
    set("org.gnome.desktop.a11y.interface", "high-contrast", "true");

    DisplayOptionsWatcher watcher;
    std::vector<DisplayOptions> seen;
    QObject::connect(&watcher, &DisplayOptionsWatcher::changed,
                     [&](const DisplayOptions& options) { seen.push_back(options); });
    const auto becomes = [&](DisplayOptions expected) {
        return spinUntil([&] { return watcher.options() == expected; });
    };
    EXPECT_EQ(watcher.options(), DisplayOptions{}) << "all off until the answers arrive";
    ASSERT_TRUE(becomes({true, true, true, false}));
    // Let the monitors start before anything changes.
    spinFor(std::chrono::milliseconds(500));

    set("org.gnome.desktop.a11y.applications", "screen-reader-enabled", "true");
    ASSERT_TRUE(becomes({true, true, true, true}));
    set("org.gnome.desktop.interface", "enable-animations", "true");
    ASSERT_TRUE(becomes({false, true, true, true}));
    set("org.gnome.desktop.a11y.interface", "high-contrast", "false");
    ASSERT_TRUE(becomes({false, false, false, true}));
    ASSERT_FALSE(seen.empty());
    EXPECT_EQ(seen.back(), watcher.options());
}

TEST_F(DisplayOptionsTest, UnreadableSettingsStayOff)
{
    // Stored values that would turn everything on, which the watcher cannot read without
    // the schemas.
    set("org.gnome.desktop.interface", "enable-animations", "false");
    set("org.gnome.desktop.a11y.interface", "high-contrast", "true");
    set("org.gnome.desktop.a11y.applications", "screen-reader-enabled", "true");
    const QByteArray dataDirs = qgetenv("XDG_DATA_DIRS");
    qputenv("XDG_DATA_DIRS", config.path().toLocal8Bit()); // no schemas there
    DisplayOptionsWatcher watcher;
    spinFor(std::chrono::milliseconds(500));
    qputenv("XDG_DATA_DIRS", dataDirs);
    EXPECT_EQ(watcher.options(), DisplayOptions{});
}

class KdeAnimations : public ::testing::Test {
protected:
    void SetUp() override
    {
        qputenv("GSETTINGS_BACKEND", "memory");
        qputenv("XDG_CONFIG_HOME", config.path().toLocal8Bit());
    }

    // Saved the way KDE saves: a new file renamed over the old one.
    void save(const QByteArray& text)
    {
        const QString path = config.filePath("kdeglobals");
        QFile file(path + ".new");
        ASSERT_TRUE(file.open(QIODevice::WriteOnly));
        file.write(text);
        file.close();
        QFile::remove(path);
        ASSERT_TRUE(QFile::rename(path + ".new", path));
    }

    QTemporaryDir config;
};

TEST_F(KdeAnimations, FactorIsReadFromTheKdeGroupOnly)
{
    EXPECT_EQ(KdeAnimationSetting::parseFactor("[KDE]\nAnimationDurationFactor=0\n"), 0.0);
    EXPECT_EQ(KdeAnimationSetting::parseFactor(
                  "[General]\nAnimationDurationFactor=0\n[KDE]\n AnimationDurationFactor = 0.5 \n"),
              0.5);
    EXPECT_FALSE(KdeAnimationSetting::parseFactor("[General]\nAnimationDurationFactor=0\n"));
    EXPECT_FALSE(KdeAnimationSetting::parseFactor("[KDE]\nAnimationDurationFactor=fast\n"));
    EXPECT_FALSE(KdeAnimationSetting::parseFactor(""));
}

TEST_F(KdeAnimations, SliderAtZeroMeansReducedMotionAndIsFollowed)
{
    save("[KDE]\nAnimationDurationFactor=0\nSingleClick=false\n");
    DisplayOptionsWatcher watcher;
    EXPECT_FALSE(watcher.options().reduceMotion) << "off until the file has been read";
    ASSERT_TRUE(spinUntil([&] { return watcher.options().reduceMotion; }));

    save("[KDE]\nAnimationDurationFactor=0.25\n");
    ASSERT_TRUE(spinUntil([&] { return !watcher.options().reduceMotion; }));
    save("[KDE]\nAnimationDurationFactor=0\n");
    ASSERT_TRUE(spinUntil([&] { return watcher.options().reduceMotion; }));
}

} // namespace
