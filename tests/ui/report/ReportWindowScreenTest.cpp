// The report window on a real X server, saved for a person to look at: as it opens, and with
// what will be sent shown and a refusal under the form.
#include "common/Wait.h"
#include "ui/report/ProblemReportWindow.h"

#include <QApplication>
#include <QDir>
#include <QLineEdit>
#include <QPlainTextEdit>
#include <QToolButton>

#include <gtest/gtest.h>

using testing_support::spinUntil;

namespace {

ProblemReport sample()
{
    return ProblemReport::make(
        {{"version", "0.1.0 (/usr/bin/velotide)"},
         {"computer", "MacBook Pro (16-inch, 2019) [MacBookPro16,1]"},
         {"armed", "true"}},
        QStringLiteral("2026-11-24 01:00:00 volume keys armed\n").repeated(20));
}

void save(QWidget& window, const QString& name)
{
    const QString dir = QStringLiteral(VELOTIDE_ARTIFACTS_DIR);
    QDir().mkpath(dir);
    window.grab().save(dir + QLatin1Char('/') + name + QStringLiteral(".png"));
}

TEST(ReportWindow, OpensAt520By620AndGrowsToFitWhatWillBeSent)
{
    // Nothing here is sendable, so the window needs no one to send for it.
    ProblemReportWindow window({});
    window.present(sample());
    ASSERT_TRUE(spinUntil([&] { return window.isVisible(); }));
    EXPECT_EQ(window.size(), QSize(520, 620));
    save(window, "report-window");

    window.findChild<QToolButton*>()->click();
    window.findChild<QLineEdit*>()->setText("you@home.example");
    window.findChild<QPlainTextEdit*>("description")->setPlainText(QString(5001, u'x'));
    window.submit();
    QApplication::processEvents();
    EXPECT_EQ(window.width(), 520);
    EXPECT_GT(window.height(), 620);
    save(window, "report-window-preview");
}

} // namespace
