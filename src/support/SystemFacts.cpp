#include "support/SystemFacts.h"

#include <QFile>
#include <QRegularExpression>
#include <QStringList>
#include <QSysInfo>

namespace {

// The files read here are a few bytes; anything longer is not what it should be.
constexpr qint64 kMaxRead = 4096;

QString firstLine(const QString& path)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        return {};
    const QByteArray bytes = file.read(kMaxRead);
    const qsizetype end = bytes.indexOf('\n');
    return QString::fromUtf8(end < 0 ? bytes : bytes.left(end)).trimmed();
}

// What firmware makers write when they did not fill the field in.
bool isPlaceholder(const QString& text)
{
    static const QStringList placeholders{QStringLiteral("System Product Name"),
                                          QStringLiteral("System Version"),
                                          QStringLiteral("To be filled by O.E.M."),
                                          QStringLiteral("Default string"),
                                          QStringLiteral("Not Applicable"),
                                          QStringLiteral("Not Specified"),
                                          QStringLiteral("None"),
                                          QStringLiteral("0"),
                                          QStringLiteral("1.0")};
    return text.isEmpty() || placeholders.contains(text, Qt::CaseInsensitive);
}

// A type code such as Lenovo's 20HRCTO1WW: no lower-case letter and no space.
bool isTypeCode(const QString& text)
{
    static const QRegularExpression code(QStringLiteral("^[A-Z0-9_-]+$"));
    return code.match(text).hasMatch();
}

} // namespace

namespace SystemFacts {

QString hardwareModel(const QString& folder)
{
    const QString name = firstLine(folder + QStringLiteral("/product_name"));
    const QString version = firstLine(folder + QStringLiteral("/product_version"));
    const bool versionSays = !isPlaceholder(version) && version != name;
    if (isPlaceholder(name))
        return versionSays ? version : QStringLiteral("unknown");
    if (isTypeCode(name) && versionSays)
        return version + QStringLiteral(" (") + name + QLatin1Char(')');
    return name;
}

QString distribution(const QString& osRelease)
{
    QFile file(osRelease);
    if (file.open(QIODevice::ReadOnly)) {
        const QString key = QStringLiteral("PRETTY_NAME=");
        for (const QString& line : QString::fromUtf8(file.read(kMaxRead)).split(u'\n')) {
            if (!line.startsWith(key))
                continue;
            QString value = line.mid(key.size()).trimmed();
            if (value.size() >= 2 && (value.front() == u'"' || value.front() == u'\'') &&
                value.back() == value.front())
                value = value.mid(1, value.size() - 2);
            if (!value.isEmpty())
                return value;
        }
    }
    return QSysInfo::prettyProductName();
}

QString desktop()
{
    const auto variable = [](const char* name) {
        const QString value = qEnvironmentVariable(name);
        return value.isEmpty() ? QStringLiteral("unknown") : value;
    };
    return variable("XDG_CURRENT_DESKTOP") + QStringLiteral(" (") + variable("XDG_SESSION_TYPE") +
           QLatin1Char(')');
}

} // namespace SystemFacts
