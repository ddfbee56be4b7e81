#include "support/PlatformWords.h"

#include "app/KeyContext.h"

#include <QRegularExpression>

#include <gtest/gtest.h>

#include <algorithm>

namespace {

// Words that name the platform the texts were first written for, or its parts. The local
// network itself exists everywhere; only its permission is foreign.
const QStringList foreignWords{
    "Mac",           "macOS",          "System Settings", "Accessibility",
    "accessibility", "Control Center", "Local Network",   "local network access",
    "Privacy",       "ad-hoc",         "CoreAudio",       "Finder",
    "event tap",     "menu bar",       "Applications"};

bool namesForeignPlatform(const QString& text)
{
    return std::any_of(foreignWords.begin(), foreignWords.end(),
                       [&](const QString& word) { return text.contains(word); });
}

int placeholderCount(const QString& text)
{
    static const QRegularExpression placeholder(QStringLiteral("%(\\d\\$)?@|%\\d"));
    return int(text.count(placeholder));
}

TEST(PlatformWords, EveryRowExchangesForeignWordsForLocalOnes)
{
    for (const PlatformWord& word : platformWords()) {
        const QString elsewhere = QString::fromUtf8(word.elsewhere);
        const QString here = QString::fromUtf8(word.here);
        // One row describes the other platform without naming it: the steps through its
        // permission list.
        if (word.id != PlatformText::inputAccessAlreadyListed) {
            EXPECT_TRUE(namesForeignPlatform(elsewhere)) << word.elsewhere;
        }
        EXPECT_FALSE(namesForeignPlatform(here)) << word.here;
        EXPECT_FALSE(here.contains(QStringLiteral("%@"))) << "Qt placeholders here: " << word.here;
        EXPECT_EQ(placeholderCount(elsewhere), placeholderCount(here)) << word.here;
        EXPECT_EQ(platformText(word.id), word.here);
    }
}

TEST(PlatformWords, NoTextOfTheDecisionNamesAnotherPlatform)
{
    using Case = ArmedState::Case;
    for (const ArmedState& state :
         {ArmedState(Case::paused), ArmedState(Case::noAccessibility),
          ArmedState(Case::tapInactive), ArmedState(Case::speakerNotConnected),
          ArmedState(Case::noOutputChosen), ArmedState::wrongOutput(std::nullopt, "T")}) {
        const PanelFix fix = state.fix(SpeakerProblem{SpeakerProblem::Kind::noSpeakersFound, {}});
        for (const QString& text :
             {state.reason(), state.panelMessage(), callToAction(fix).value_or(QString()),
              panelFixAction(fix).criticalWarning}) {
            EXPECT_FALSE(namesForeignPlatform(text)) << text.toStdString();
        }
    }
}

} // namespace
