// The program itself, with no X server to grab keys from, takes up a key service that starts
// after it, and lets it go when it stops, without a relaunch.
#include "app/AppProcess.h"
#include "common/Files.h"

#include <QTemporaryDir>

#include <gtest/gtest.h>

#include <unistd.h>

namespace {

TEST(CaptureProcess, TheProgramFollowsAKeyServiceStartedAfterIt)
{
    QTemporaryDir home;
    AppProcess app(qEnvironmentVariable("VELOTIDE_BIN"), home.path());
    app.setVariable(QStringLiteral("DISPLAY"), {});
    app.setVariable(QStringLiteral("QT_QPA_PLATFORM"), QStringLiteral("offscreen"));
    app.start();
    ASSERT_TRUE(app.waitFor(QStringLiteral("volume keys not armed — input access missing")))
        << app.describe();

    // The program asks for the service at the socket AppProcess names; it starts there now.
    const QString seat = home.filePath(QStringLiteral("seat0"));
    testing_support::writeFile(seat, "ACTIVE_UID=" + QByteArray::number(::getuid()) + "\n");
    QProcess service;
    service.start(qEnvironmentVariable("VELOTIDE_KEYD"),
                  {QStringLiteral("--socket=") + home.filePath(QStringLiteral("no-keyd")),
                   QStringLiteral("--seat-file=") + seat});
    ASSERT_TRUE(app.waitFor(QStringLiteral("Input access granted"))) << app.describe();
    // Accepted, holding no keyboard here: the arming follows the new tap's health.
    ASSERT_TRUE(app.waitFor(QStringLiteral("volume keys not armed — key capture inactive")))
        << app.describe();

    service.terminate();
    ASSERT_TRUE(service.waitForFinished(5000));
    ASSERT_TRUE(app.waitFor(QStringLiteral("Input access was revoked — keys released")))
        << app.describe();
    EXPECT_EQ(app.stop(), 0) << app.describe();
}

} // namespace
