#include "speaker/SpeakerProblem.h"

#include <QCoreApplication>
#include <QTranslator>

#include <gtest/gtest.h>

namespace {

// Shows which text was looked up: the key in capitals, in guillemets.
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

TEST(SpeakerProblem, IsReadAsOneWholeSentenceWithTheSpeakerInIt)
{
    using Kind = SpeakerProblem::Kind;
    const SpeakerProblem notFound{Kind::notFound, QStringLiteral("Den %1")};
    EXPECT_EQ(speakerProblemText(notFound), QStringLiteral("Speaker 'Den %1' not found"));
    EXPECT_EQ(speakerProblemText({Kind::looking, QStringLiteral("Den")}),
              QStringLiteral("Looking for Den"));

    MarkingTranslator translator;
    ASSERT_TRUE(QCoreApplication::installTranslator(&translator));
    const QString translated = speakerProblemText(notFound);
    QCoreApplication::removeTranslator(&translator);
    EXPECT_EQ(translated, QStringLiteral("«SPEAKER 'Den %1' NOT FOUND»"));
}

} // namespace
