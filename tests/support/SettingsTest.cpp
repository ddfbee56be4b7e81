#include "support/Settings.h"

#include "common/Files.h"
#include "common/LogWatch.h"
#include "common/QtPrinters.h"

#include <QDir>
#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QRegularExpression>
#include <QTemporaryDir>

#include <gtest/gtest.h>

#include <linux/capability.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <thread>
#include <unistd.h>

// The records below name only the fields that differ from the defaults; GCC 12 warns about the
// rest all the same.
#pragma GCC diagnostic ignored "-Wmissing-field-initializers"

using testing_support::readFile;
using testing_support::writeFile;

namespace {

using Route = Settings::Route;

// Runs `f` with `folder` read-only, on a thread of its own that has given up root's power to
// ignore file permissions, so the folder is read-only even when the tests run as root.
template <typename F>
void inReadOnlyFolder(const QString& folder, F f)
{
    ::chmod(QFile::encodeName(folder).constData(), 0555);
    std::thread t([&] {
        __user_cap_header_struct header{_LINUX_CAPABILITY_VERSION_3, 0};
        __user_cap_data_struct data[2]{};
        ::syscall(SYS_capget, &header, data);
        for (int cap : {CAP_DAC_OVERRIDE, CAP_DAC_READ_SEARCH, CAP_FOWNER})
            data[0].effective &= ~(1u << cap);
        ::syscall(SYS_capset, &header, data);
        f();
    });
    t.join();
    ::chmod(QFile::encodeName(folder).constData(), 0755);
}

// The permission bits of what is at `path`, itself rather than what a link leads to.
unsigned mode(const QString& path)
{
    struct stat st {};
    return ::lstat(QFile::encodeName(path).constData(), &st) == 0 ? st.st_mode & 0777 : 0;
}

// A missing file is a first run with the defaults: the probe's end-to-end test shows it.
class SettingsFileTest : public ::testing::Test {
protected:
    QTemporaryDir dir;
    QString path = dir.filePath("velotide/settings.json");
};

TEST_F(SettingsFileTest, EachKeyIsDecodedOnItsOwn)
{
    struct Case {
        const char* what;
        QByteArray json;
        Settings expected;
        QString logLine; // empty: nothing logged
    };
    const Case cases[] = {
        {"only a trigger counts as configured, and unknown keys are passed over",
         R"({"triggerOutput": "Digital Out", "somethingNewer": [1, 2]})",
         {.triggerOutput = "Digital Out", .triggerConfigured = true},
         {}},
        {"an empty trigger without the flag is not configured",
         R"({"triggerOutput": "", "speaker": "Den"})",
         {.speaker = "Den"},
         {}},
        {"an explicit false flag wins over a named trigger",
         R"({"triggerOutput": "Digital Out", "triggerConfigured": false})",
         {.triggerOutput = "Digital Out"},
         {}},
        {"an unreadable flag falls back to the trigger rule",
         R"({"triggerOutput": "Digital Out", "triggerConfigured": "yes"})",
         {.triggerOutput = "Digital Out", .triggerConfigured = true},
         "settings: wrong type for triggerConfigured; using the defaults"},
        {"an unknown route is optical, logged, and keeps the other keys",
         R"({"route": "bluetooth", "speaker": "Kitchen", "paused": true})",
         {.speaker = "Kitchen", .paused = true},
         R"(settings: unknown route "bluetooth", using optical)"},
        {"routes are matched case-sensitively",
         R"({"route": "AirPlay"})",
         {},
         R"(settings: unknown route "AirPlay", using optical)"},
        {"the logged route is escaped",
         R"({"route": "a\"b\\c\nd"})",
         {},
         R"(settings: unknown route "a\"b\\c\nd", using optical)"},
        {"a route of the wrong type is optical",
         R"({"route": 3})",
         {},
         "settings: wrong type for route; using the defaults"},
        {"a string where a boolean belongs is false, the rest kept",
         R"({"paused": "yes", "loginItemOffered": true, "speaker": "Den"})",
         {.speaker = "Den", .loginItemOffered = true},
         "settings: wrong type for paused; using the defaults"},
        {"a number where a string belongs is empty",
         R"({"speaker": 12, "lastKnownHost": "192.168.1.20"})",
         {.lastKnownHost = "192.168.1.20"},
         "settings: wrong type for speaker; using the defaults"},
        {"the network route", R"({"route": "network"})", {.route = Route::Network}, {}},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.what);
        ASSERT_TRUE(writeFile(path, c.json));
        LogWatch log;
        const auto [settings, isFirstRun] = Settings::load(path);
        EXPECT_FALSE(isFirstRun);
        EXPECT_EQ(settings, c.expected) << settings.toJson().constData();
        EXPECT_EQ(log.lines(), c.logLine.isEmpty() ? QStringList() : QStringList{c.logLine});
        EXPECT_TRUE(QFile::exists(path)) << "a decodable file is never moved";
    }
}

TEST_F(SettingsFileTest, UndecodableOrLargeFileIsSetAsideOwnerOnlyUnderAStampedName)
{
    const QByteArray large = '{' + QByteArray(2 * 1024 * 1024, ' ') + '}';
    for (const QByteArray& bytes : {QByteArray("not json"), QByteArray("[1, 2]"), large}) {
        SCOPED_TRACE(bytes.left(10).constData());
        QDir(dir.filePath("velotide")).removeRecursively();
        ASSERT_TRUE(writeFile(path, bytes));
        LogWatch log;
        const auto [settings, isFirstRun] = Settings::load(path);
        EXPECT_TRUE(isFirstRun);
        EXPECT_EQ(settings, Settings{});
        EXPECT_FALSE(QFile::exists(path));

        const QStringList backups = QDir(dir.filePath("velotide")).entryList(QDir::Files);
        ASSERT_EQ(backups.size(), 1);
        const QRegularExpression name(
            R"(^settings\.json\.corrupt-\d{4}-\d\d-\d\dT\d\d-\d\d-\d\dZ$)");
        EXPECT_TRUE(name.match(backups[0]).hasMatch()) << backups[0].toStdString();
        EXPECT_EQ(readFile(dir.filePath("velotide/" + backups[0])), bytes);
        EXPECT_EQ(mode(dir.filePath("velotide/" + backups[0])), 0600u);

        const QStringList lines = log.lines();
        ASSERT_EQ(lines.size(), 1);
        EXPECT_TRUE(lines[0].startsWith("settings unreadable (")) << lines[0].toStdString();
        EXPECT_TRUE(lines[0].endsWith("); moved to " + backups[0])) << lines[0].toStdString();
    }
}

TEST_F(SettingsFileTest, SaveWritesAllTenKeysSortedOnePerLineOwnerOnlyAndLoadReadsThemBack)
{
    ::umask(0022);
    ASSERT_TRUE(writeFile(path, "{}"));
    ::chmod(QFile::encodeName(path).constData(), 0644);

    ASSERT_TRUE(Settings{}.save(path));
    EXPECT_EQ(readFile(path), R"({
    "airplayOutput": "",
    "automaticUpdateChecks": true,
    "lastKnownHost": "",
    "loginItemOffered": false,
    "opticalOutput": "",
    "paused": false,
    "route": "optical",
    "speaker": "",
    "triggerConfigured": false,
    "triggerOutput": ""
}
)");
    EXPECT_EQ(mode(path), 0600u);
    EXPECT_EQ(mode(dir.filePath("velotide")), 0700u) << "an existing folder is made private";

    const Settings s{.speaker = "Wohnzimmer \"Süd\"",
                     .route = Route::Network,
                     .triggerOutput = "USB Audio CODEC",
                     .triggerConfigured = true,
                     .opticalOutput = "USB Audio CODEC",
                     .airplayOutput = "Wohnzimmer",
                     .paused = true,
                     .loginItemOffered = true,
                     .lastKnownHost = "fe80::1",
                     .automaticUpdateChecks = false};
    ASSERT_TRUE(s.save(path));
    const auto [loaded, isFirstRun] = Settings::load(path);
    EXPECT_FALSE(isFirstRun);
    EXPECT_EQ(loaded, s);
}

// Also shows that the file is never written in place, so a reader never sees half a record.
TEST_F(SettingsFileTest, SaveFailsWhereTheFolderIsReadOnly)
{
    ASSERT_TRUE(writeFile(path, "{\"speaker\": \"Old\"}\n"));
    const QString folder = dir.filePath("velotide");
    LogWatch log;
    bool saved = true;
    inReadOnlyFolder(folder, [&] { saved = Settings{.speaker = "New"}.save(path); });

    EXPECT_FALSE(saved);
    EXPECT_EQ(readFile(path), "{\"speaker\": \"Old\"}\n");
    EXPECT_EQ(QDir(folder).entryList(QDir::Files | QDir::Hidden), QStringList{"settings.json"})
        << "no temporary file left behind";
    const QStringList lines = log.lines();
    ASSERT_EQ(lines.size(), 1);
    EXPECT_TRUE(lines[0].startsWith("could not save settings: ")) << lines[0].toStdString();
    EXPECT_GT(lines[0].size(), QString("could not save settings: ").size());
}

// Anything but a regular file could keep the reading from ever ending; it is neither opened
// nor replaced.
TEST_F(SettingsFileTest, OnlyARegularFileIsReadOrReplaced)
{
    const QByteArray file = QFile::encodeName(path);
    for (const bool fifo : {false, true}) {
        SCOPED_TRACE(fifo ? "a FIFO" : "a link to /dev/zero");
        QDir(dir.filePath("velotide")).removeRecursively();
        QDir().mkpath(dir.filePath("velotide"));
        ASSERT_EQ(
            fifo ? ::mkfifo(file.constData(), 0600) : ::symlink("/dev/zero", file.constData()), 0);
        LogWatch log;
        EXPECT_TRUE(Settings::load(path).isFirstRun);
        EXPECT_FALSE(Settings{}.save(path));

        struct stat st {};
        ASSERT_EQ(::lstat(file.constData(), &st), 0);
        EXPECT_TRUE(fifo ? S_ISFIFO(st.st_mode) : S_ISLNK(st.st_mode));
        EXPECT_EQ(log.lines(),
                  (QStringList{"settings: could not read settings.json (not a regular file); "
                               "using the defaults and leaving it as it is",
                               fifo ? "could not save settings: could not read the existing "
                                      "settings.json (not a regular file), left as it is"
                                    : "could not save settings: settings.json is a symbolic link, "
                                      "left as it is"}));
    }
}

TEST_F(SettingsFileTest, ALinkedFileIsReadButNeverWrittenThrough)
{
    const QString target = dir.filePath("dotfiles/velotide.json");
    ASSERT_TRUE(writeFile(target, R"({"speaker": "Den"})"));
    QDir().mkpath(dir.filePath("velotide"));
    ASSERT_EQ(::symlink(QFile::encodeName(target).constData(), QFile::encodeName(path).constData()),
              0);

    EXPECT_EQ(Settings::load(path).settings, Settings{.speaker = "Den"});
    EXPECT_FALSE(Settings{.speaker = "Kitchen"}.save(path));
    EXPECT_EQ(readFile(target), R"({"speaker": "Den"})");
    EXPECT_TRUE(QFileInfo(path).isSymLink());
}

TEST_F(SettingsFileTest, AFileThatCannotBeMovedAsideIsCopiedBeforeItIsReplaced)
{
    ASSERT_TRUE(writeFile(path, "not json"));
    const QString folder = dir.filePath("velotide");
    LogWatch log;
    inReadOnlyFolder(folder, [&] { EXPECT_TRUE(Settings::load(path).isFirstRun); });
    EXPECT_EQ(readFile(path), "not json");

    ASSERT_TRUE(Settings{.speaker = "Den"}.save(path));
    const QStringList copies = QDir(folder).entryList({"settings.json.backup-*"});
    ASSERT_EQ(copies.size(), 1);
    EXPECT_EQ(readFile(folder + "/" + copies[0]), "not json");
    EXPECT_EQ(Settings::load(path).settings, Settings{.speaker = "Den"});
    EXPECT_EQ(log.lines(),
              (QStringList{"settings unreadable (illegal value at offset 1); could not move it "
                           "aside (Permission denied), left as it is",
                           "settings: kept a copy of the old file as " + copies[0] +
                               " before rewriting it"}));
}

// A newer version's keys survive a rewrite. A file whose values had to be replaced is copied
// owner-only before its first rewrite; one that only has unknown keys is not copied.
TEST_F(SettingsFileTest, RewritesKeepUnknownKeysAndCopyOnlyAFileWithValuesOfTheWrongType)
{
    const QString folder = dir.filePath("velotide");
    ASSERT_TRUE(writeFile(path, R"({"speaker": "Den", "somethingNewer": [1, {"a": null}]})"));
    ASSERT_TRUE(Settings{.speaker = "Kitchen"}.save(path));
    const QJsonObject saved = QJsonDocument::fromJson(readFile(path)).object();
    EXPECT_EQ(saved.value("speaker"), "Kitchen");
    EXPECT_EQ(saved.value("somethingNewer"),
              QJsonDocument::fromJson(R"([1, {"a": null}])").array());
    EXPECT_EQ(QDir(folder).entryList(QDir::Files), QStringList{"settings.json"});

    const QByteArray old = R"({"paused": "yes", "route": "bluetooth"})";
    ASSERT_TRUE(writeFile(path, old));
    ASSERT_TRUE(Settings{}.save(path));
    ASSERT_TRUE(Settings{.paused = true}.save(path));
    const QStringList copies = QDir(folder).entryList({"settings.json.backup-*"});
    ASSERT_EQ(copies.size(), 1) << "the rewritten file is clean: one copy only";
    EXPECT_EQ(readFile(folder + "/" + copies[0]), old);
    EXPECT_EQ(mode(folder + "/" + copies[0]), 0600u);
}

// An absolute XDG_CONFIG_HOME is followed by the end-to-end test; a relative one is not.
TEST(SettingsLocationTest, ARelativeXdgConfigFolderIsIgnored)
{
    const QByteArray saved = qgetenv("XDG_CONFIG_HOME");
    qputenv("XDG_CONFIG_HOME", "relative/ignored");
    EXPECT_EQ(Settings::filePath(), QDir::homePath() + "/.config/velotide/settings.json");
    qputenv("XDG_CONFIG_HOME", saved);
}

TEST(SettingsRememberTest, TriggersGoToTheSlotOfTheirRoute)
{
    Settings s;
    s.rememberTrigger("", Route::Airplay);
    EXPECT_EQ(s, Settings{});

    s.rememberTrigger("Kitchen", Route::Airplay);
    s.rememberTrigger("Digital Out", Route::Network);
    EXPECT_EQ(s, (Settings{.opticalOutput = "Digital Out", .airplayOutput = "Kitchen"}));
    s.rememberTrigger("USB DAC", Route::Optical);
    EXPECT_EQ(s, (Settings{.opticalOutput = "USB DAC", .airplayOutput = "Kitchen"}))
        << "remembering does not choose the trigger";
}

} // namespace
