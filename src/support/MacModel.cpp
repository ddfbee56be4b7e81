#include "support/MacModel.h"

#include <QHash>

namespace {

struct Name {
    const char* identifier;
    const char* name;
};

// One identifier may cover several models; its name then offers them joined with " or ".
constexpr Name kNames[] = {
    {"Mac13,1", "Mac Studio (2022)"},
    {"Mac13,2", "Mac Studio (2022)"},
    {"Mac14,2", "MacBook Air (M2, 2022)"},
    {"Mac14,3", "Mac mini (2023)"},
    {"Mac14,5", "MacBook Pro (14-inch, 2023)"},
    {"Mac14,6", "MacBook Pro (16-inch, 2023)"},
    {"Mac14,7", "MacBook Pro (13-inch, M2, 2022)"},
    {"Mac14,8", "Mac Pro (2023) or Mac Pro (Rack, 2023)"},
    {"Mac14,9", "MacBook Pro (14-inch, 2023)"},
    {"Mac14,10", "MacBook Pro (16-inch, 2023)"},
    {"Mac14,12", "Mac mini (2023)"},
    {"Mac14,13", "Mac Studio (2023)"},
    {"Mac14,14", "Mac Studio (2023)"},
    {"Mac14,15", "MacBook Air (15-inch, M2, 2023)"},
    {"Mac15,3", "MacBook Pro (14-inch, M3, Nov 2023)"},
    {"Mac15,4", "iMac (24-inch, 2023, Two ports)"},
    {"Mac15,5", "iMac (24-inch, 2023, Four ports)"},
    {"Mac15,6", "MacBook Pro (14-inch, M3 Pro or M3 Max, Nov 2023)"},
    {"Mac15,7", "MacBook Pro (16-inch, Nov 2023)"},
    {"Mac15,8", "MacBook Pro (14-inch, M3 Pro or M3 Max, Nov 2023)"},
    {"Mac15,9", "MacBook Pro (16-inch, Nov 2023)"},
    {"Mac15,10", "MacBook Pro (14-inch, M3 Pro or M3 Max, Nov 2023)"},
    {"Mac15,11", "MacBook Pro (16-inch, Nov 2023)"},
    {"Mac15,12", "MacBook Air (13-inch, M3, 2024)"},
    {"Mac15,13", "MacBook Air (15-inch, M3, 2024)"},
    {"Mac15,14", "Mac Studio (2025)"},
    {"Mac16,1", "MacBook Pro (14-inch, M4, 2024)"},
    {"Mac16,2", "iMac (24-inch, 2024, Two ports)"},
    {"Mac16,3", "iMac (24-inch, 2024, Four ports)"},
    {"Mac16,5", "MacBook Pro (16-inch, 2024)"},
    {"Mac16,6", "MacBook Pro (14-inch, M4 Pro or M4 Max, 2024)"},
    {"Mac16,7", "MacBook Pro (16-inch, 2024)"},
    {"Mac16,8", "MacBook Pro (14-inch, M4 Pro or M4 Max, 2024)"},
    {"Mac16,9", "Mac Studio (2025)"},
    {"Mac16,10", "Mac mini (2024)"},
    {"Mac16,11", "Mac mini (2024)"},
    {"Mac16,12", "MacBook Air (13-inch, M4, 2025)"},
    {"Mac16,13", "MacBook Air (15-inch, M4, 2025)"},
    {"Mac17,2", "MacBook Pro (14-inch, M5)"},
    {"Mac17,3", "MacBook Air (13-inch, M5)"},
    {"Mac17,4", "MacBook Air (15-inch, M5)"},
    {"Mac17,6", "MacBook Pro (16-inch, M5 Pro or M5 Max)"},
    {"Mac17,7", "MacBook Pro (14-inch, M5 Pro or M5 Max)"},
    {"Mac17,8", "MacBook Pro (16-inch, M5 Pro or M5 Max)"},
    {"Mac17,9", "MacBook Pro (14-inch, M5 Pro or M5 Max)"},
    {"MacBookAir8,1", "MacBook Air (Retina, 13-inch, 2018)"},
    {"MacBookAir8,2", "MacBook Air (Retina, 13-inch, 2019)"},
    {"MacBookAir9,1", "MacBook Air (Retina, 13-inch, 2020)"},
    {"MacBookAir10,1", "MacBook Air (M1, 2020)"},
    {"MacBookPro15,1", "MacBook Pro (15-inch, 2018) or MacBook Pro (15-inch, 2019)"},
    {"MacBookPro15,2", "MacBook Pro (13-inch, 2018, Four Thunderbolt 3 ports) or MacBook Pro "
                       "(13-inch, 2019, Four Thunderbolt 3 ports)"},
    {"MacBookPro15,3", "MacBook Pro (15-inch, 2019)"},
    {"MacBookPro15,4", "MacBook Pro (13-inch, 2019, Two Thunderbolt 3 ports)"},
    {"MacBookPro16,1", "MacBook Pro (16-inch, 2019)"},
    {"MacBookPro16,2", "MacBook Pro (13-inch, 2020, Four Thunderbolt 3 ports)"},
    {"MacBookPro16,3", "MacBook Pro (13-inch, 2020, Two Thunderbolt 3 ports)"},
    {"MacBookPro16,4", "MacBook Pro (16-inch, 2019)"},
    {"MacBookPro17,1", "MacBook Pro (13-inch, M1, 2020)"},
    {"MacBookPro18,1", "MacBook Pro (16-inch, 2021)"},
    {"MacBookPro18,2", "MacBook Pro (16-inch, 2021)"},
    {"MacBookPro18,3", "MacBook Pro (14-inch, 2021)"},
    {"MacBookPro18,4", "MacBook Pro (14-inch, 2021)"},
    {"MacPro7,1", "Mac Pro (2019) or Mac Pro (Rack, 2019)"},
    {"Macmini8,1", "Mac mini (2018)"},
    {"Macmini9,1", "Mac mini (M1, 2020)"},
    {"iMac19,1", "iMac (Retina 5K, 27-inch, 2019)"},
    {"iMac19,2", "iMac (Retina 4K, 21.5-inch, 2019)"},
    {"iMac20,1", "iMac (Retina 5K, 27-inch, 2020)"},
    {"iMac20,2", "iMac (Retina 5K, 27-inch, 2020)"},
    {"iMac21,1", "iMac (24-inch, M1, 2021)"},
    {"iMac21,2", "iMac (24-inch, M1, 2021)"},
    {"iMacPro1,1", "iMac Pro (2017)"},
};

const QHash<QString, QString>& names()
{
    static const QHash<QString, QString> table = [] {
        QHash<QString, QString> built;
        for (const Name& entry : kNames)
            built.insert(QString::fromLatin1(entry.identifier), QString::fromLatin1(entry.name));
        return built;
    }();
    return table;
}

} // namespace

namespace MacModel {

QString describe(const QString& identifier)
{
    const auto found = names().constFind(identifier);
    if (found == names().constEnd())
        return identifier;
    return *found + QStringLiteral(" [") + identifier + QLatin1Char(']');
}

} // namespace MacModel
