#include "app/CommandLine.h"

#include <gtest/gtest.h>

namespace {

CommandLine parse(QStringList arguments)
{
    arguments.prepend(QStringLiteral("/usr/bin/velotide"));
    return CommandLine::parse(arguments);
}

TEST(CommandLine, RunModeFromWholeArguments)
{
    struct Row {
        QStringList arguments;
        RunMode mode;
    };
    const Row rows[] = {
        {{}, RunMode::application},
        {{"--probe"}, RunMode::probe},
        {{"--hud-demo"}, RunMode::hudDemo},
        {{"--hud-demo", "--probe"}, RunMode::probe},
        {{"--probe", "--hud-demo"}, RunMode::probe},
        {{"--probe=1"}, RunMode::application},
        {{"--probex"}, RunMode::application},
        {{"-probe"}, RunMode::application},
        {{" --probe"}, RunMode::application},
        {{"--hud-demo=1", "-hud-demo"}, RunMode::application},
        {{"--probe=1", "--hud-demo"}, RunMode::hudDemo},
        {{"--demo-panel", "--demo-onboarding"}, RunMode::application},
    };
    for (const Row& row : rows)
        EXPECT_EQ(parse(row.arguments).mode, row.mode) << row.arguments.join(' ').toStdString();
}

TEST(CommandLine, DemoStepNumber)
{
    struct Row {
        QStringList arguments;
        std::optional<int> step;
    };
    const Row rows[] = {
        {{}, std::nullopt},
        {{"--demo-step"}, std::nullopt},
        {{"--demo-step=4"}, 4},
        {{"--demo-step=-2"}, -2},
        {{"--demo-step="}, 0},
        {{"--demo-step=two"}, 0},
        {{"--demo-step=3x"}, 0},
        {{"--demo-step= 3"}, 0},
        {{"--demo-step=99999999999"}, 0},
        {{"--demo-step=2", "--demo-step=5"}, 2},
        {{"--demo-step=x", "--demo-step=5"}, 0},
    };
    for (const Row& row : rows)
        EXPECT_EQ(parse(row.arguments).demoStep, row.step) << row.arguments.join(' ').toStdString();
}

TEST(CommandLine, StagingFlagsAreKeptWhateverTheModeAndUnknownOnesSetAside)
{
    const CommandLine line =
        parse({"--demo-onboarding", "--demo-setup-again", "--demo-panel", "--demo-finish",
               "--demo-step=3", "--demo-step=5", "--frobnicate", "--probe=1", "--probe",
               "--key-service=/k.sock"});
    EXPECT_EQ(line.mode, RunMode::probe);
    EXPECT_TRUE(line.demoOnboarding);
    EXPECT_TRUE(line.demoSetupAgain);
    EXPECT_TRUE(line.demoPanel);
    EXPECT_TRUE(line.demoFinish);
    EXPECT_EQ(line.demoStep, 3);
    EXPECT_EQ(line.keyServicePath, QStringLiteral("/k.sock"));
    EXPECT_EQ(line.unknownArguments, (QStringList{"--frobnicate", "--probe=1"}))
        << "without the program path";

    const CommandLine none =
        parse({"--demo-panel=1", "--demo-finishing", "-demo-onboarding", "--key-service"});
    EXPECT_FALSE(none.demoPanel);
    EXPECT_FALSE(none.demoFinish);
    EXPECT_FALSE(none.demoOnboarding);
    EXPECT_FALSE(none.demoSetupAgain);
    EXPECT_EQ(none.unknownArguments, (QStringList{"--demo-panel=1", "--demo-finishing",
                                                  "-demo-onboarding", "--key-service"}));
}

} // namespace
