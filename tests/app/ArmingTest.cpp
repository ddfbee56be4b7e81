#include "app/KeyContext.h"
#include "common/MarkingTranslator.h"

#include <gtest/gtest.h>

namespace {

using Case = ArmedState::Case;

// Put right one input after the other, in order of priority: each step must reveal the next
// state, which shows that every state beats all the ones after it. (Outputs are compared
// exactly: the probe's report test shows that.)
TEST(Arming, EachStateBeatsTheNextWithATriggerOutput)
{
    // Every input wrong at once.
    KeyContext context{.paused = true,
                       .trusted = false,
                       .tapEnabled = false,
                       .triggerOutput = "Optical Out",
                       .triggerConfigured = true,
                       .currentOutput = "Speakers",
                       .speakerConnected = false,
                       .speakerFixedVolume = true,
                       .speakerName = "Den"};
    const std::vector<std::pair<std::function<void(KeyContext&)>, ArmedState>> steps{
        {[](KeyContext&) {}, Case::paused},
        {[](KeyContext& c) { c.paused = false; }, Case::noAccessibility},
        {[](KeyContext& c) { c.trusted = true; }, Case::tapInactive},
        {[](KeyContext& c) { c.tapEnabled = true; },
         ArmedState::wrongOutput(QStringLiteral("Speakers"), QStringLiteral("Optical Out"))},
        {[](KeyContext& c) { c.currentOutput = QStringLiteral("Optical Out"); },
         Case::speakerNotConnected},
        {[](KeyContext& c) { c.speakerConnected = true; },
         ArmedState::fixedVolume(QStringLiteral("Den"))},
        {[](KeyContext& c) { c.speakerFixedVolume = false; }, Case::armed},
    };
    for (std::size_t i = 0; i < steps.size(); ++i) {
        steps[i].first(context);
        EXPECT_EQ(context.evaluate(), steps[i].second) << "step " << i;
    }
}

TEST(Arming, WithoutATriggerOutputTheQuestionMustBeSettled)
{
    KeyContext context; // no trigger chosen, the question unsettled, no speaker
    context.trusted = true;
    context.tapEnabled = true;
    context.currentOutput = QStringLiteral("Speakers");
    EXPECT_EQ(context.evaluate(), Case::noOutputChosen) << "beats a missing speaker";
    context.triggerConfigured = true;
    context.speakerConnected = true;
    context.currentOutput.reset();
    EXPECT_EQ(context.evaluate(), Case::armed) << "an empty, settled trigger means any output";
}

TEST(Arming, FixForEachState)
{
    using Kind = SpeakerProblem::Kind;
    const std::optional<SpeakerProblem> none;
    EXPECT_EQ(ArmedState(Case::paused).fix(none), PanelFix::resumeKeys);
    EXPECT_EQ(ArmedState(Case::noAccessibility).fix(none), PanelFix::openAccessibilitySettings);
    EXPECT_EQ(ArmedState(Case::tapInactive).fix(none), PanelFix::none);
    EXPECT_EQ(ArmedState(Case::noOutputChosen).fix(none), PanelFix::chooseOutput);
    EXPECT_EQ(ArmedState::wrongOutput(std::nullopt, QStringLiteral("T")).fix(none),
              PanelFix::openSoundSettings);
    // The network settings only when sweeps keep coming back empty.
    const ArmedState notConnected(Case::speakerNotConnected);
    EXPECT_EQ(notConnected.fix(none), PanelFix::none);
    EXPECT_EQ(notConnected.fix(SpeakerProblem{Kind::looking, QStringLiteral("Den")}),
              PanelFix::none);
    EXPECT_EQ(notConnected.fix(SpeakerProblem{Kind::noSpeakersFound, {}}),
              PanelFix::openLocalNetworkSettings);
    EXPECT_EQ(ArmedState(Case::tapInactive).fix(SpeakerProblem{Kind::noSpeakersFound, {}}),
              PanelFix::none);
}

TEST(Arming, PanelMessagesAreLookedUpAndReasonsAreNot)
{
    const MarkingTranslator translator;
    EXPECT_EQ(ArmedState(Case::paused).panelMessage(), QStringLiteral("«VOLUME KEYS ARE PAUSED»"));
    EXPECT_EQ(ArmedState(Case::noAccessibility).panelMessage(),
              QStringLiteral("«VOLUME KEYS NEED INPUT ACCESS»"));
    EXPECT_EQ(ArmedState(Case::noAccessibility).reason(), QStringLiteral("input access missing"));

    const ArmedState nowhere = ArmedState::wrongOutput(std::nullopt, QStringLiteral("T"));
    EXPECT_EQ(nowhere.panelMessage(),
              QStringLiteral("«VOLUME KEYS INACTIVE — PLAYING TO «ANOTHER OUTPUT»»"));
    EXPECT_EQ(nowhere.reason(), QStringLiteral("output is unknown, not T"));
    // A name that looks like a placeholder is shown as it is.
    EXPECT_EQ(ArmedState::wrongOutput(QStringLiteral("Out %1"), QStringLiteral("T")).panelMessage(),
              QStringLiteral("«VOLUME KEYS INACTIVE — PLAYING TO Out %1»"));
    EXPECT_EQ(ArmedState::fixedVolume(QStringLiteral("Den")).panelMessage(),
              QStringLiteral("«VOLUME KEYS INACTIVE — Den HAS A FIXED VOLUME»"));
}

} // namespace
