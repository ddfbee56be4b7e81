// The panel's warning line: which problem it names when several apply.
#include "app/WarningText.h"

#include <gtest/gtest.h>

namespace {

using Route = Settings::Route;

WarningInputs inputs()
{
    WarningInputs in;
    in.speaker = QStringLiteral("Den");
    in.currentOutput = QStringLiteral("USB Audio");
    return in;
}

TEST(WarningText, TheMostPressingProblemIsNamed)
{
    struct Row {
        const char* name;
        std::function<void(WarningInputs&)> change;
        QString expected;
    };
    const Row rows[] = {
        {"a failed save comes first",
         [](WarningInputs& in) {
             in.saveFailed = true;
             in.armed = false;
             in.armedMessage = QStringLiteral("Volume keys are paused");
         },
         QStringLiteral("Could not save settings — check disk space")},
        {"keys not armed say why",
         [](WarningInputs& in) {
             in.armed = false;
             in.armedMessage = QStringLiteral("Volume keys are paused");
         },
         QStringLiteral("Volume keys are paused")},
        {"any output, sound going elsewhere", [](WarningInputs&) {},
         QStringLiteral("This computer's audio is going to USB Audio")},
        {"any output, sound going to the speaker",
         [](WarningInputs& in) { in.currentOutput = QStringLiteral("Den"); }, QString()},
        {"a wired speaker playing its line input",
         [](WarningInputs& in) {
             in.opticalCapable = {QStringLiteral("Den")};
             in.isLineInput = true;
         },
         QString()},
        {"another zone plays the line input",
         [](WarningInputs& in) {
             in.triggerOutput = QStringLiteral("USB Audio");
             in.playingOverOptical = QStringLiteral("Living Room");
         },
         QStringLiteral("Audio is playing on Living Room — this controls Den")},
        {"trigger in use, speaker hears no wire",
         [](WarningInputs& in) { in.triggerOutput = QStringLiteral("USB Audio"); },
         QStringLiteral("Den is not reporting a wired input")},
        {"trigger in use, speaker could be wired",
         [](WarningInputs& in) {
             in.triggerOutput = QStringLiteral("USB Audio");
             in.opticalCapable = {QStringLiteral("Den")};
         },
         QString()},
        {"no speaker chosen",
         [](WarningInputs& in) {
             in.speaker.clear();
             in.triggerOutput = QStringLiteral("USB Audio");
         },
         QStringLiteral("no speaker is not reporting a wired input")},
        {"airplay, one receiver of the name", [](WarningInputs& in) { in.route = Route::Airplay; },
         QString()},
        {"airplay, two receivers of the name",
         [](WarningInputs& in) {
             in.route = Route::Airplay;
             in.ambiguousAirPlayName = true;
         },
         QStringLiteral("Two AirPlay devices are named \u201cDen\u201d")},
    };
    for (const Row& row : rows) {
        WarningInputs in = inputs();
        row.change(in);
        EXPECT_EQ(warningText(in), row.expected) << row.name;
    }
}

} // namespace
