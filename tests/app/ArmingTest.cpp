#include "app/KeyContext.h"

#include <QCoreApplication>
#include <QTranslator>

#include <gtest/gtest.h>

namespace {

using Case = ArmedState::Case;

// A context in which every input is wrong at once.
KeyContext everythingWrong()
{
    KeyContext context;
    context.paused = true;
    context.trusted = false;
    context.tapEnabled = false;
    context.triggerOutput = QStringLiteral("Optical Out");
    context.triggerConfigured = true;
    context.currentOutput = QStringLiteral("Speakers");
    context.speakerConnected = false;
    return context;
}

// Put right one input after the other, in order of priority: each step must reveal the next
// state, which shows that every state beats all the ones after it.
TEST(Arming, EachStateBeatsTheNextWithATriggerOutput)
{
    KeyContext context = everythingWrong();
    const std::vector<std::pair<std::function<void(KeyContext&)>, ArmedState>> steps{
        {[](KeyContext&) {}, Case::paused},
        {[](KeyContext& c) { c.paused = false; }, Case::noAccessibility},
        {[](KeyContext& c) { c.trusted = true; }, Case::tapInactive},
        {[](KeyContext& c) { c.tapEnabled = true; },
         ArmedState::wrongOutput(QStringLiteral("Speakers"), QStringLiteral("Optical Out"))},
        {[](KeyContext& c) { c.currentOutput = QStringLiteral("Optical Out"); },
         Case::speakerNotConnected},
        {[](KeyContext& c) { c.speakerConnected = true; }, Case::armed},
    };
    for (std::size_t i = 0; i < steps.size(); ++i) {
        steps[i].first(context);
        EXPECT_EQ(context.evaluate(), steps[i].second) << "step " << i;
    }
}

TEST(Arming, EachStateBeatsTheNextWithoutATriggerOutput)
{
    KeyContext context = everythingWrong();
    context.triggerOutput.clear();
    context.triggerConfigured = false;
    context.paused = false;
    context.trusted = true;
    EXPECT_EQ(context.evaluate(), Case::tapInactive);
    context.tapEnabled = true;
    EXPECT_EQ(context.evaluate(), Case::noOutputChosen) << "beats a missing speaker";
    context.speakerConnected = true;
    EXPECT_EQ(context.evaluate(), Case::noOutputChosen) << "a connected speaker changes nothing";
    context.speakerConnected = false;
    context.triggerConfigured = true;
    EXPECT_EQ(context.evaluate(), Case::speakerNotConnected);
    context.speakerConnected = true;
    EXPECT_EQ(context.evaluate(), Case::armed) << "an empty, settled trigger means any output";
    context.currentOutput.reset();
    EXPECT_EQ(context.evaluate(), Case::armed) << "even with no output at all";
}

TEST(Arming, OutputsAreComparedExactly)
{
    KeyContext context = everythingWrong();
    context.paused = false;
    context.trusted = true;
    context.tapEnabled = true;
    context.speakerConnected = true;
    context.triggerConfigured = false; // irrelevant once a trigger is named

    context.currentOutput = QStringLiteral("Optical Out");
    EXPECT_EQ(context.evaluate(), Case::armed);
    context.currentOutput = QStringLiteral("optical out");
    EXPECT_EQ(context.evaluate(), ArmedState::wrongOutput(QStringLiteral("optical out"),
                                                          QStringLiteral("Optical Out")));
    context.currentOutput.reset();
    const ArmedState state = context.evaluate();
    EXPECT_EQ(state, ArmedState::wrongOutput(std::nullopt, QStringLiteral("Optical Out")));
    EXPECT_FALSE(state.currentOutput().has_value());
    EXPECT_EQ(state.triggerOutput(), QStringLiteral("Optical Out"));
}

TEST(Arming, ReasonsAndPanelMessagesInEnglish)
{
    struct Row {
        ArmedState state;
        const char* reason;
        const char* message;
    };
    const Row rows[] = {
        {Case::armed, "", ""},
        {Case::paused, "paused", "Volume keys are paused"},
        {Case::noAccessibility, "input access missing", "Volume keys need input access"},
        {Case::tapInactive, "event tap inactive", "Volume keys inactive — event tap inactive"},
        {Case::speakerNotConnected, "speaker not connected",
         "Volume keys inactive — speaker not connected"},
        {Case::noOutputChosen, "no output chosen", "Choose which output the keys apply to"},
        {ArmedState::wrongOutput(QStringLiteral("HDMI"), QStringLiteral("Optical Out")),
         "output is HDMI, not Optical Out", "Volume keys inactive — playing to HDMI"},
        {ArmedState::wrongOutput(std::nullopt, QStringLiteral("Optical Out")),
         "output is unknown, not Optical Out", "Volume keys inactive — playing to another output"},
        // A name that looks like a placeholder is shown as it is.
        {ArmedState::wrongOutput(QStringLiteral("Out %1 %2"), QStringLiteral("T")),
         "output is Out %1 %2, not T", "Volume keys inactive — playing to Out %1 %2"},
    };
    for (const Row& row : rows) {
        EXPECT_EQ(row.state.reason(), QString::fromUtf8(row.reason));
        EXPECT_EQ(row.state.panelMessage(), QString::fromUtf8(row.message));
    }
}

TEST(Arming, NoTextOfTheDecisionNamesAnotherPlatform)
{
    const QStringList foreign{"Mac",           "macOS",          "System Settings", "Accessibility",
                              "accessibility", "Control Center", "Local Network",   "Privacy"};
    const std::vector<ArmedState> states{
        Case::armed,
        Case::paused,
        Case::noAccessibility,
        Case::tapInactive,
        Case::speakerNotConnected,
        Case::noOutputChosen,
        ArmedState::wrongOutput(std::nullopt, QStringLiteral("Optical Out"))};
    for (const ArmedState& state : states) {
        const PanelFix fix = state.fix(SpeakerProblem{SpeakerProblem::Kind::noSpeakersFound, {}});
        const QStringList texts{state.reason(), state.panelMessage(),
                                callToAction(fix).value_or(QString()),
                                panelFixAction(fix).criticalWarning};
        for (const QString& text : texts) {
            for (const QString& word : foreign)
                EXPECT_FALSE(text.contains(word)) << text.toStdString();
        }
    }
}

TEST(Arming, FixForEachState)
{
    const std::optional<SpeakerProblem> noSnapshot;
    EXPECT_EQ(ArmedState(Case::armed).fix(noSnapshot), PanelFix::none);
    EXPECT_EQ(ArmedState(Case::paused).fix(noSnapshot), PanelFix::resumeKeys);
    EXPECT_EQ(ArmedState(Case::noAccessibility).fix(noSnapshot),
              PanelFix::openAccessibilitySettings);
    EXPECT_EQ(ArmedState(Case::tapInactive).fix(noSnapshot), PanelFix::none);
    EXPECT_EQ(ArmedState(Case::noOutputChosen).fix(noSnapshot), PanelFix::chooseOutput);
    EXPECT_EQ(ArmedState::wrongOutput(std::nullopt, QStringLiteral("T")).fix(noSnapshot),
              PanelFix::openSoundSettings);
}

TEST(Arming, NetworkSettingsOfferedOnlyWhenSweepsKeepComingBackEmpty)
{
    using Kind = SpeakerProblem::Kind;
    const ArmedState state(Case::speakerNotConnected);
    EXPECT_EQ(state.fix(std::nullopt), PanelFix::none) << "no snapshot yet";
    EXPECT_EQ(state.fix(SpeakerProblem{Kind::answeredDiscoveryOnly, QStringLiteral("Den")}),
              PanelFix::none);
    EXPECT_EQ(state.fix(SpeakerProblem{Kind::looking, QStringLiteral("Den")}), PanelFix::none);
    EXPECT_EQ(state.fix(SpeakerProblem{Kind::noSpeakersFound, {}}),
              PanelFix::openLocalNetworkSettings);
    // The same problem means nothing in another state.
    EXPECT_EQ(ArmedState(Case::tapInactive).fix(SpeakerProblem{Kind::noSpeakersFound, {}}),
              PanelFix::none);
}

// Turns every text of the program's context to capitals in guillemets, so that a looked-up
// text can be told from one that was not, and a translation from its English key.
class MarkingTranslator : public QTranslator {
public:
    bool isEmpty() const override { return false; }
    QString translate(const char* context, const char* source, const char*, int) const override
    {
        if (qstrcmp(context, "Velotide") != 0)
            return {};
        return QStringLiteral("«") + QString::fromUtf8(source).toUpper() + QStringLiteral("»");
    }
};

class ArmingTranslated : public ::testing::Test {
protected:
    void SetUp() override { ASSERT_TRUE(QCoreApplication::installTranslator(&m_translator)); }
    void TearDown() override { QCoreApplication::removeTranslator(&m_translator); }

private:
    MarkingTranslator m_translator;
};

TEST_F(ArmingTranslated, PanelMessagesAreLookedUpAndReasonsAreNot)
{
    EXPECT_EQ(ArmedState(Case::paused).panelMessage(), QStringLiteral("«VOLUME KEYS ARE PAUSED»"));
    EXPECT_EQ(ArmedState(Case::noAccessibility).panelMessage(),
              QStringLiteral("«VOLUME KEYS NEED INPUT ACCESS»"));
    EXPECT_EQ(ArmedState(Case::noAccessibility).reason(), QStringLiteral("input access missing"));

    const ArmedState nowhere = ArmedState::wrongOutput(std::nullopt, QStringLiteral("T"));
    EXPECT_EQ(nowhere.panelMessage(),
              QStringLiteral("«VOLUME KEYS INACTIVE — PLAYING TO «ANOTHER OUTPUT»»"));
    EXPECT_EQ(nowhere.reason(), QStringLiteral("output is unknown, not T"));
}

} // namespace
