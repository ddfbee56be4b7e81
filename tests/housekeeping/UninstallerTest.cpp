// The uninstaller in a home folder of the test's own, its alerts answered as a user answers
// them. The tests run in order: the last one removes the log, and logging with it.
#include "housekeeping/Uninstaller.h"

#include "common/Files.h"
#include "common/Wait.h"
#include "housekeeping/LoginItem.h"
#include "support/Log.h"
#include "support/Settings.h"

#include <QAbstractButton>
#include <QApplication>
#include <QDirIterator>
#include <QKeyEvent>
#include <QMessageBox>
#include <QTemporaryDir>

#include <gtest/gtest.h>

#include <algorithm>
#include <set>
#include <string>

using testing_support::spinUntil;
using testing_support::writeFile;

namespace {

QTemporaryDir home;
QTemporaryDir cache; // outside the home: what Qt caches there is not the user's
// Before anything reads them: the log picks its folder once.
const bool homeIsSet = [] {
    for (const auto& [name, path] : {std::pair{"HOME", ""},
                                     {"XDG_CONFIG_HOME", "/.config"},
                                     {"XDG_STATE_HOME", "/.local/state"},
                                     {"XDG_DATA_HOME", "/.local/share"}})
        qputenv(name, QFile::encodeName(home.path() + QString::fromLatin1(path)));
    qputenv("XDG_CACHE_HOME", QFile::encodeName(cache.path()));
    return true;
}();

QString inHome(const char* path)
{
    return home.filePath(QString::fromUtf8(path));
}

std::set<std::string> listHome()
{
    std::set<std::string> paths;
    QDirIterator it(home.path(), QDir::AllEntries | QDir::Hidden | QDir::NoDotAndDotDot,
                    QDirIterator::Subdirectories);
    while (it.hasNext())
        paths.insert(QDir(home.path()).relativeFilePath(it.next()).toStdString());
    return paths;
}

QMessageBox* alertSaying(const char* text)
{
    QMessageBox* found = nullptr;
    spinUntil([&] {
        for (QWidget* widget : QApplication::topLevelWidgets())
            if (auto* box = qobject_cast<QMessageBox*>(widget); box && box->isVisible())
                found = box->text() == QString::fromUtf8(text) ? box : found;
        return found != nullptr;
    });
    return found;
}

void click(QMessageBox* box, const char* title)
{
    ASSERT_NE(box, nullptr);
    for (QAbstractButton* button : box->buttons())
        if (button->text() == QString::fromUtf8(title))
            button->click();
}

class UninstallerTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        QObject::connect(&uninstaller, &Uninstaller::finished, [this] { finished = true; });
        if (QFile::exists(program))
            return;
        // The user's Velotide files, then others that must stay.
        writeFile(program, "#!/bin/sh\n");
        Settings settings;
        settings.speaker = QStringLiteral("Den");
        settings.save();
        Log::info(QStringLiteral("a line for the log file"));
        ASSERT_TRUE(testing_support::await(loginItem.setEnabled(true)));
        for (const char* other : {".config/autostart/other.desktop", ".config/other/keep.conf",
                                  ".local/bin/other-tool", "Documents/notes.txt"})
            writeFile(inHome(other), "keep\n");
        Log::flush();
    }

    QString program = inHome(".local/bin/velotide");
    LoginItem loginItem{{}, program};
    Uninstaller uninstaller{loginItem, {program, home.path()}};
    bool finished = false;
};

TEST_F(UninstallerTest, ReturnCancelsAndLeavesEverything)
{
    const auto before = listHome();
    uninstaller.run();
    QMessageBox* box = alertSaying("Uninstall Velotide?");
    ASSERT_NE(box, nullptr);
    QKeyEvent press(QEvent::KeyPress, Qt::Key_Return, Qt::NoModifier);
    QCoreApplication::sendEvent(box->focusWidget() ? box->focusWidget() : box, &press);
    Log::flush();
    EXPECT_TRUE(Log::tail(2).endsWith(QStringLiteral(" uninstall cancelled\n")));
    EXPECT_FALSE(finished);
    EXPECT_EQ(listHome(), before);
}

TEST_F(UninstallerTest, AFailingTrashShowsTheSecondAlertAndKeepsEverything)
{
    const QString trash = inHome(".local/share/Trash"); // a plain file takes nothing in
    ASSERT_TRUE(writeFile(trash, "not a folder"));
    const auto before = listHome();
    uninstaller.run();
    click(alertSaying("Uninstall Velotide?"), "Uninstall");
    click(alertSaying("Velotide is still installed"), "Cancel");
    EXPECT_FALSE(finished);
    EXPECT_EQ(listHome(), before);
    QFile::remove(trash);
}

TEST_F(UninstallerTest, RemovesExactlyTheUsersFilesAndTrashesTheProgram)
{
    const auto before = listHome();
    uninstaller.run();
    click(alertSaying("Uninstall Velotide?"), "Uninstall");
    ASSERT_TRUE(spinUntil([&] { return finished; }));
    const auto after = listHome();
    std::set<std::string> removed;
    std::set<std::string> added;
    std::ranges::set_difference(before, after, std::inserter(removed, removed.end()));
    std::ranges::set_difference(after, before, std::inserter(added, added.end()));
    EXPECT_EQ(removed, (std::set<std::string>{".local/bin/velotide", ".config/velotide",
                                              ".config/velotide/settings.json",
                                              ".config/autostart/com.brindlewerk.velotide.desktop",
                                              ".local/state/velotide",
                                              ".local/state/velotide/velotide.log"}));
    EXPECT_TRUE(added.contains(".local/share/Trash/files/velotide"));
    for (const std::string& path : added)
        EXPECT_TRUE(path.starts_with(".local/share/Trash")) << path;
}

} // namespace
