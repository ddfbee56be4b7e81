// The sample households are what the demo and the process tests start the emulator with;
// none may rot unnoticed.
#include "emulator/HouseholdJson.h"

#include <QDir>
#include <QFile>

#include <gtest/gtest.h>

using emulator::parseHousehold;

namespace {

QByteArray readSample(const QString& name)
{
    QFile file(QStringLiteral(EMULATOR_HOUSEHOLDS "/") + name);
    EXPECT_TRUE(file.open(QIODevice::ReadOnly)) << name.toStdString();
    return file.readAll();
}

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

} // namespace
