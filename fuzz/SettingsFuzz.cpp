// A settings file with any content, read as a launch reads it (without setting a bad file
// aside, so that every input meets the same reader).
#include "FuzzInput.h"
#include "support/Settings.h"

#include <QDir>
#include <QFile>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    static const QString path = QDir::tempPath() + QStringLiteral("/velotide-fuzz-settings.json");
    QFile file(path);
    if (!file.open(QIODevice::WriteOnly | QIODevice::Truncate))
        return 0;
    file.write(fuzzBytes(data, size));
    file.close();
    const Settings::Loaded loaded = Settings::peek(path);
    loaded.settings.toJson();
    return 0;
}
