#include "speaker/SpeakerProblem.h"

#include "common/MarkingTranslator.h"

#include <gtest/gtest.h>

namespace {

TEST(SpeakerProblem, IsReadAsOneWholeSentenceWithTheSpeakerInIt)
{
    using Kind = SpeakerProblem::Kind;
    const SpeakerProblem notFound{Kind::notFound, QStringLiteral("Den %1")};
    EXPECT_EQ(speakerProblemText(notFound), QStringLiteral("Speaker 'Den %1' not found"));
    EXPECT_EQ(speakerProblemText({Kind::looking, QStringLiteral("Den")}),
              QStringLiteral("Looking for Den"));

    const MarkingTranslator translator;
    EXPECT_EQ(speakerProblemText(notFound), QStringLiteral("«SPEAKER 'Den %1' NOT FOUND»"));
}

} // namespace
