// The household loader: every sample loads, and an impossible or damaged file is refused
// with a text saying why, before any player listens.
#include "emulator/Emulator.h"
#include "emulator/HouseholdJson.h"

#include <QDir>
#include <QFile>

#include <gtest/gtest.h>

#include <random>

using emulator::parseHousehold;

namespace {

QByteArray readSample(const QString& name)
{
    QFile file(QStringLiteral(EMULATOR_HOUSEHOLDS "/") + name);
    EXPECT_TRUE(file.open(QIODevice::ReadOnly)) << name.toStdString();
    return file.readAll();
}

QByteArray player(const QByteArray& host, const QByteArray& uid, const QByteArray& extra = {})
{
    return "{\"host\":\"" + host + "\",\"uid\":\"" + uid +
           "\",\"room\":\"Den\",\"model\":\"Sonos One\"" + extra + "}";
}

QByteArray household(const QByteArray& players, const QByteArray& groups = "[]")
{
    return "{\"household\":\"Sonos_x\",\"players\":[" + players + "],\"groups\":" + groups + "}";
}

const QByteArray uidA = "RINCON_000E58AAAAAA01400";
const QByteArray uidB = "RINCON_000E58BBBBBB01400";

TEST(HouseholdFile, EverySampleLoads)
{
    const QStringList samples = QDir(QStringLiteral(EMULATOR_HOUSEHOLDS))
                                    .entryList({QStringLiteral("*.json")}, QDir::Files);
    ASSERT_GE(samples.size(), 4);
    for (const QString& name : samples) {
        const auto parsed = parseHousehold(readSample(name));
        EXPECT_TRUE(parsed.hasValue())
            << name.toStdString() << ": " << (parsed ? "" : parsed.error().toStdString());
    }
}

TEST(HouseholdFile, ImpossibleHouseholdsAreRefusedWithATextNamingTheEntry)
{
    const struct {
        QByteArray json;
        const char* expected;
    } cases[] = {
        {"{\"household\":", "not valid JSON"},
        {"[1,2]", "one JSON object"},
        {"{\"players\":[]}", "\"household\" is missing"},
        {household(""), "at least one player"},
        {household(player("10.0.0.1", uidA)), "players[0]: host \"10.0.0.1\" is not a loopback"},
        {household(player("127.0.0.11", "RINCON_XYZ")), "players[0]: uid \"RINCON_XYZ\""},
        {household(player("127.0.0.11", uidA) + ',' + player("127.0.0.11", uidB)),
         "players[1]: host 127.0.0.11 is used"},
        {household(player("127.0.0.11", uidA) + ',' + player("127.0.0.12", uidA)),
         "players[1]: uid RINCON_000E58AAAAAA01400 is used"},
        {household(player("127.0.0.11", uidA, ",\"volume\":150")),
         "players[0].volume: must be a whole number from 0 to 100"},
        {household(player("127.0.0.11", uidA, ",\"volume\":\"loud\"")), "players[0].volume"},
        {household(player("127.0.0.11", uidA, ",\"transport\":\"SPINNING\"")),
         "players[0].transport: \"SPINNING\" is not one of"},
        {household(player("127.0.0.11", uidA, ",\"volumne\":3")), "unknown key \"volumne\""},
        {household(player("127.0.0.11", uidA, ",\"satellites\":[\"RINCON_000E58CCCCCC01400\"]")),
         "is not the UID or host of any player"},
        {household(player("127.0.0.11", uidA, ",\"satellites\":[\"127.0.0.11\"]")),
         "its own satellite"},
        {household(player("127.0.0.11", uidA, ",\"quirks\":{\"ssdpReplies\":-1}")),
         "players[0].quirks.ssdpReplies"},
        {household(player("127.0.0.11", uidA) + ',' +
                       player("127.0.0.12", uidB, ",\"stereoPairOf\":\"127.0.0.11\""),
                   "[{\"coordinator\":\"127.0.0.12\"}]"),
         "groups[0]: RINCON_000E58BBBBBB01400 is bonded"},
        {household(
             player("127.0.0.11", uidA) + ',' +
             player("127.0.0.12", uidB, ",\"stereoPairOf\":\"127.0.0.11\"") + ',' +
             player("127.0.0.13", "RINCON_000E58CCCCCC01400", ",\"stereoPairOf\":\"127.0.0.11\"")),
         "players[2].stereoPairOf: RINCON_000E58CCCCCC01400 cannot pair with"},
        {household(player("127.0.0.11", uidA) + ',' + player("127.0.0.12", uidB),
                   "[{\"coordinator\":\"127.0.0.11\"},{\"coordinator\":\"127.0.0.12\","
                   "\"members\":[\"127.0.0.11\"]}]"),
         "groups[1]: RINCON_000E58AAAAAA01400 is in two groups"},
    };
    for (const auto& c : cases) {
        const auto parsed = parseHousehold(c.json);
        ASSERT_FALSE(parsed.hasValue()) << c.json.toStdString();
        EXPECT_TRUE(parsed.error().contains(QLatin1String(c.expected)))
            << "got: " << parsed.error().toStdString() << "\nwanted: " << c.expected;
    }

    emulator::Emulator e;
    const auto missing = e.load(QStringLiteral("/nonexistent/house.json"));
    ASSERT_TRUE(missing.has_value());
    EXPECT_TRUE(missing->contains(QStringLiteral("cannot read /nonexistent/house.json")));
    EXPECT_TRUE(e.start(14999).has_value()) << "no household, no players to start";
    EXPECT_TRUE(e.loadJson("{").has_value());
    EXPECT_TRUE(e.hosts().isEmpty());
}

TEST(HouseholdFile, DamagedFilesNeverCrashAndAlwaysSayWhy)
{
    const QByteArray original = readSample(QStringLiteral("home-theatre.json"));
    std::mt19937 random(1400);
    const QByteArray swaps = "{}[]\",:0159aZ -";
    int refused = 0;
    for (int round = 0; round < 3000; ++round) {
        QByteArray damaged = original;
        for (int i = 0; i < 1 + round % 4; ++i)
            damaged[random() % damaged.size()] = swaps[random() % swaps.size()];
        const auto parsed = parseHousehold(damaged);
        if (!parsed) {
            EXPECT_FALSE(parsed.error().isEmpty());
            ++refused;
        }
    }
    EXPECT_GT(refused, 1000);
}

} // namespace
