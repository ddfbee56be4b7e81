#include "ui/report/ReportForm.h"

#include <gtest/gtest.h>

namespace {

std::string problem(const QString& email, const QString& description)
{
    const auto found = ReportForm::check(email, description);
    return found ? found->message.toStdString() : std::string("sendable");
}

const QString kEnough = QStringLiteral("It stopped.");

TEST(ReportForm, TheLimitsAtTheirEdges)
{
    const std::string noAddress = "We need an email address to reply to.";
    EXPECT_EQ(problem(" a@b.c\n", kEnough), "sendable");
    EXPECT_EQ(problem("a@bc", kEnough), noAddress);
    EXPECT_EQ(problem("abcdef", kEnough), noAddress);

    EXPECT_EQ(problem("a@b.c", " 123456789 \n"), "Tell us a little more about what went wrong.");
    EXPECT_EQ(problem("a@b.c", "1234567890"), "sendable");
    EXPECT_EQ(problem("a@b.c", QString(5000, u'x')), "sendable");
    EXPECT_EQ(problem("a@b.c", QString(5001, u'x')),
              "That is longer than we can accept — keep it under 5000 characters and we will "
              "ask for the rest.");
    EXPECT_EQ(ReportForm::check("a@b.c", QString(5001, u'x'))->field,
              ReportForm::Problem::Field::description);
}

} // namespace
