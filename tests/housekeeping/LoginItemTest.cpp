// The autostart entry on real files in a folder of the test's own.
#include "housekeeping/LoginItem.h"

#include "common/LogWatch.h"
#include "common/Wait.h"

#include <QDir>
#include <QFile>
#include <QTemporaryDir>

#include <gtest/gtest.h>

using testing_support::spinUntil;
using Status = LoginItem::Status;

namespace {

class LoginItemTest : public ::testing::Test {
protected:
    LoginItemTest()
    {
        // An installed-looking program whose name needs the Exec key's quoting.
        program = dir.filePath(QStringLiteral("opt/My \"Apps\" 100%/velotide"));
        QDir().mkpath(QFileInfo(program).absolutePath());
        QFile file(program);
        file.open(QIODevice::WriteOnly);
        file.setPermissions(QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
    }

    bool answer(QFuture<bool> future)
    {
        EXPECT_TRUE(testing_support::await(future));
        return future.isFinished() && future.result();
    }

    void writeEntry(const QByteArray& text)
    {
        QDir().mkpath(QFileInfo(entry).absolutePath());
        QFile file(entry);
        file.open(QIODevice::WriteOnly);
        file.write(text);
    }

    QTemporaryDir dir;
    QString entry = dir.filePath(QStringLiteral("config/autostart/velotide.desktop"));
    QString program;
};

TEST_F(LoginItemTest, AnEntryWrittenForAProgramReadsBackAsEnabledAndGoesAway)
{
    LoginItem item(entry, program);
    LogWatch log;
    EXPECT_TRUE(answer(item.setEnabled(false))) << "off when never registered";
    EXPECT_EQ(log.count(QStringLiteral("removed from login items")), 0);

    EXPECT_TRUE(answer(item.setEnabled(true)));
    EXPECT_EQ(item.status(), Status::enabled) << "the quoted Exec names the program again";
    EXPECT_EQ(log.count(QStringLiteral("registered as a login item")), 1);

    EXPECT_TRUE(answer(item.setEnabled(false)));
    EXPECT_FALSE(QFile::exists(entry));
    EXPECT_EQ(item.status(), Status::notRegistered);
}

TEST_F(LoginItemTest, AnEntrySwitchedOffOrStartingNothingIsToldApart)
{
    writeEntry("[Desktop Entry]\nExec=velotide\nX-GNOME-Autostart-enabled=false\n");
    LoginItem off(entry, program);
    EXPECT_TRUE(spinUntil([&] { return off.status() == Status::requiresApproval; }));

    writeEntry("[Desktop Entry]\nHidden=true\n");
    LoginItem hidden(entry, program);
    EXPECT_TRUE(spinUntil([&] { return hidden.status() == Status::requiresApproval; }));

    writeEntry("[Other]\nHidden=true\n[Desktop Entry]\nExec=\"/nowhere/velotide\" --x\n");
    LoginItem gone(entry, program);
    EXPECT_TRUE(spinUntil([&] { return gone.status() == Status::notFound; }));
}

TEST_F(LoginItemTest, OnlyAnInstalledCopyRegistersAndAFailedWriteIsLogged)
{
    LogWatch log;
    LoginItem build(entry, dir.filePath(QStringLiteral("src/velotide/build/velotide")));
    EXPECT_FALSE(answer(build.registerIfInstalled()));
    EXPECT_FALSE(QFile::exists(entry));
    EXPECT_EQ(log.count(QStringLiteral("not registering a login item: running from ") +
                        dir.filePath(QStringLiteral("src/velotide/build/velotide"))),
              1);

    // The autostart folder is a file: nothing can be created under it, even as root.
    QFile blocker(dir.filePath(QStringLiteral("blocked")));
    blocker.open(QIODevice::WriteOnly);
    LoginItem blocked(dir.filePath(QStringLiteral("blocked/velotide.desktop")), program);
    EXPECT_FALSE(answer(blocked.setEnabled(true)));
    EXPECT_TRUE(log.lines().last().startsWith(QStringLiteral("login item registration failed: ")));

    for (const char* installed :
         {"/usr/bin/velotide", "/opt/velotide/velotide", "/home/ann/.local/bin/velotide"})
        EXPECT_TRUE(
            LoginItem::isInstalledPath(QString::fromLatin1(installed), QStringLiteral("/home/ann")))
            << installed;
    for (const char* elsewhere :
         {"/usrx/velotide", "/home/ann/Downloads/velotide", "/home/ann/.localx/velotide"})
        EXPECT_FALSE(
            LoginItem::isInstalledPath(QString::fromLatin1(elsewhere), QStringLiteral("/home/ann")))
            << elsewhere;
}

} // namespace
