#include "app/CommandLine.h"

#include <gtest/gtest.h>

namespace {

CommandLine parse(QStringList arguments)
{
    arguments.prepend(QStringLiteral("/usr/bin/velotide"));
    return CommandLine::parse(arguments);
}

TEST(CommandLine, RunModeAndDemoStepFromWholeArguments)
{
    using enum RunMode;
    struct Row {
        QStringList arguments;
        RunMode mode;
        std::optional<int> step;
    };
    const Row rows[] = {
        {{}, application, std::nullopt},
        {{"--probe"}, probe, std::nullopt},
        {{"--hud-demo"}, hudDemo, std::nullopt},
        {{"--hud-demo", "--probe"}, probe, std::nullopt},
        {{"--probe", "--version"}, version, std::nullopt},
        {{"--version", "--help", "--probe"}, help, std::nullopt},
        {{"--version=1", "--help=1"}, application, std::nullopt},
        {{"--probe", "--hud-demo"}, probe, std::nullopt},
        {{"--probe=1"}, application, std::nullopt},
        {{"--probex"}, application, std::nullopt},
        {{"-probe"}, application, std::nullopt},
        {{" --probe"}, application, std::nullopt},
        {{"--hud-demo=1", "-hud-demo"}, application, std::nullopt},
        {{"--probe=1", "--hud-demo"}, hudDemo, std::nullopt},
        {{"--demo-panel", "--demo-onboarding"}, application, std::nullopt},
        {{"--demo-step"}, application, std::nullopt},
        {{"--demo-step=4"}, application, 4},
        {{"--demo-step=-2"}, application, -2},
        {{"--demo-step="}, application, 0},
        {{"--demo-step=two"}, application, 0},
        {{"--demo-step=3x"}, application, 0},
        {{"--demo-step= 3"}, application, 0},
        {{"--demo-step=99999999999"}, application, 0},
        {{"--demo-step=2", "--demo-step=5"}, application, 2},
        {{"--demo-step=x", "--demo-step=5"}, application, 0},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.arguments.join(' ').toStdString());
        const CommandLine line = parse(row.arguments);
        EXPECT_EQ(line.mode, row.mode);
        EXPECT_EQ(line.demoStep, row.step);
    }
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
