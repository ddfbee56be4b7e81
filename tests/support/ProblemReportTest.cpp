#include "support/ProblemReport.h"

#include "common/Files.h"
#include "support/MacModel.h"
#include "support/SystemFacts.h"

#include <QTemporaryDir>

#include <gtest/gtest.h>

using testing_support::writeFile;

namespace {

TEST(MacModel, KnownIdentifiersAreNamedAndOthersComeBackAsTheyAre)
{
    EXPECT_EQ(MacModel::describe("Mac14,8").toStdString(),
              "Mac Pro (2023) or Mac Pro (Rack, 2023) [Mac14,8]");
    EXPECT_EQ(MacModel::describe("iMacPro1,1").toStdString(), "iMac Pro (2017) [iMacPro1,1]");
    EXPECT_EQ(MacModel::describe("Mac99,1").toStdString(), "Mac99,1");
    EXPECT_EQ(MacModel::describe("unknown").toStdString(), "unknown");
}

TEST(SystemFacts, HardwareModelTakesTheVersionOnlyWhereTheNameSaysLittle)
{
    QTemporaryDir dir;
    const auto model = [&](const QByteArray& name, const QByteArray& version) {
        writeFile(dir.filePath("product_name"), name);
        writeFile(dir.filePath("product_version"), version);
        return SystemFacts::hardwareModel(dir.path()).toStdString();
    };
    EXPECT_EQ(model("MacBookPro15,1\n", "1.0\n"), "MacBookPro15,1");
    EXPECT_EQ(model("20HRCTO1WW\n", "ThinkPad X1 Carbon 5th\n"),
              "ThinkPad X1 Carbon 5th (20HRCTO1WW)");
    EXPECT_EQ(model("System Product Name\n", "System Version\n"), "unknown");
    EXPECT_EQ(SystemFacts::hardwareModel(dir.filePath("missing")).toStdString(), "unknown");
    writeFile(dir.filePath("os-release"), "PRETTY_NAME=\"Debian GNU/Linux 12 (bookworm)\"\n");
    EXPECT_EQ(SystemFacts::distribution(dir.filePath("os-release")).toStdString(),
              "Debian GNU/Linux 12 (bookworm)");
}

TEST(ProblemReport, ALogTailLongerThan6000CharactersKeepsItsEndAfterATrimmingLine)
{
    const QString whole = QString(5999, u'a') + u'z';
    EXPECT_EQ(ProblemReport::cutLogTail(whole), whole);
    EXPECT_EQ(ProblemReport::cutLogTail(u'b' + whole),
              QStringLiteral("…earlier lines trimmed…\n") + whole);
}

TEST(ProblemReport, LogTailFromMissingBinaryAndJustRotatedFiles)
{
    QTemporaryDir dir;
    const QString log = dir.filePath("velotide.log");
    const QString rotated = log + ".1";
    EXPECT_EQ(ProblemReport::readLogTail(log, rotated), QString());

    // Bytes that are not UTF-8 are replaced; what follows them stays.
    writeFile(log, QByteArray("start \xff\xfe\0 end\n", 14));
    EXPECT_EQ(ProblemReport::readLogTail(log, rotated),
              QStringLiteral("start \uFFFD\uFFFD") + QChar(0) + QStringLiteral(" end\n"));

    // Just after a rotation the current file is short: the rotated one's end comes first,
    // and a read that starts inside a line starts at the next whole one.
    writeFile(rotated, QByteArray("old line\n").repeated(3000));
    writeFile(log, "new line\n");
    const QString tail = ProblemReport::readLogTail(log, rotated);
    EXPECT_TRUE(tail.endsWith("old line\nnew line\n"));
    EXPECT_TRUE(tail.startsWith("old line\n")) << tail.left(40).toStdString();
    EXPECT_GT(tail.size(), ProblemReport::kLogTailLimit);
}

TEST(ProblemReport, PreviewListsTheFilledFactsInOrderThenTheLog)
{
    const ProblemReport report = ProblemReport::make(
        {{"armed", "false — paused"}, {"version", "0.1.0"}, {"last_error", ""}, {"other", "x"}},
        "one\ntwo");
    EXPECT_EQ(report.previewText().toStdString(),
              "Version: 0.1.0\nVolume keys armed: false — paused\n\nRecent log:\none\ntwo");
    EXPECT_EQ(ProblemReport::make({{"version", "0.1.0"}}, {}).previewText().toStdString(),
              "Version: 0.1.0");
}

} // namespace
