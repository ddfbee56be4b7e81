#include "support/Settings.h"

#include "support/Log.h"

#include <QDateTime>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QJsonDocument>
#include <QJsonObject>
#include <QSaveFile>

#include <optional>

namespace {

constexpr QFileDevice::Permissions ownerOnly = QFileDevice::ReadOwner | QFileDevice::WriteOwner;

QString configFolder()
{
    const QString xdg = qEnvironmentVariable("XDG_CONFIG_HOME");
    if (!xdg.isEmpty() && QDir::isAbsolutePath(xdg))
        return xdg;
    return QDir::homePath() + QStringLiteral("/.config");
}

QString stringOr(const QJsonObject& object, QLatin1StringView key, QString fallback)
{
    const QJsonValue value = object.value(key);
    return value.isString() ? value.toString() : fallback;
}

std::optional<bool> optionalBool(const QJsonObject& object, QLatin1StringView key)
{
    const QJsonValue value = object.value(key);
    if (!value.isBool())
        return std::nullopt;
    return value.toBool();
}

std::optional<Settings::Route> routeFromName(const QString& name)
{
    for (auto route :
         {Settings::Route::Optical, Settings::Route::Airplay, Settings::Route::Network}) {
        if (Settings::routeName(route) == name)
            return route;
    }
    return std::nullopt;
}

// The string as a source literal would spell it, in double quotes, so an odd value in
// the log cannot be mistaken for the text around it.
QString quoted(const QString& text)
{
    QString out = QStringLiteral("\"");
    for (const QChar c : text) {
        switch (c.unicode()) {
        case '"':
            out += QStringLiteral("\\\"");
            break;
        case '\\':
            out += QStringLiteral("\\\\");
            break;
        case '\n':
            out += QStringLiteral("\\n");
            break;
        case '\r':
            out += QStringLiteral("\\r");
            break;
        case '\t':
            out += QStringLiteral("\\t");
            break;
        case 0:
            out += QStringLiteral("\\0");
            break;
        default:
            if (c.unicode() < 0x20 || c.unicode() == 0x7f)
                out += QStringLiteral("\\u{%1}").arg(c.unicode(), 0, 16);
            else
                out += c;
        }
    }
    return out + u'"';
}

Settings decode(const QJsonObject& object)
{
    Settings s;
    s.speaker = stringOr(object, QLatin1StringView("speaker"), {});
    const QString route = stringOr(object, QLatin1StringView("route"), QStringLiteral("optical"));
    if (const auto known = routeFromName(route)) {
        s.route = *known;
    } else {
        Log::info(QStringLiteral("settings: unknown route ") + quoted(route) +
                  QStringLiteral(", using optical"));
    }
    s.triggerOutput = stringOr(object, QLatin1StringView("triggerOutput"), {});
    // Files written before the flag existed count as configured when they name a trigger.
    s.triggerConfigured = optionalBool(object, QLatin1StringView("triggerConfigured"))
                              .value_or(!s.triggerOutput.isEmpty());
    s.opticalOutput = stringOr(object, QLatin1StringView("opticalOutput"), {});
    s.airplayOutput = stringOr(object, QLatin1StringView("airplayOutput"), {});
    s.paused = optionalBool(object, QLatin1StringView("paused")).value_or(false);
    s.loginItemOffered =
        optionalBool(object, QLatin1StringView("loginItemOffered")).value_or(false);
    s.lastKnownHost = stringOr(object, QLatin1StringView("lastKnownHost"), {});
    return s;
}

void setAside(const QString& path, const QString& why)
{
    const QString stamp = QDateTime::currentDateTimeUtc().toString(Qt::ISODate).replace(u':', u'-');
    const QString backup = path + QStringLiteral(".corrupt-") + stamp;
    QFile::rename(path, backup);
    Log::info(QStringLiteral("settings unreadable (") + why + QStringLiteral("); moved to ") +
              QFileInfo(backup).fileName());
}

bool failSave(const QString& why)
{
    Log::info(QStringLiteral("could not save settings: ") + why);
    return false;
}

} // namespace

QString Settings::directory()
{
    return configFolder() + QStringLiteral("/velotide");
}

QString Settings::filePath()
{
    return directory() + QStringLiteral("/settings.json");
}

QString Settings::routeName(Route route)
{
    switch (route) {
    case Route::Airplay:
        return QStringLiteral("airplay");
    case Route::Network:
        return QStringLiteral("network");
    case Route::Optical:
        break;
    }
    return QStringLiteral("optical");
}

Settings::Loaded Settings::load()
{
    return load(filePath());
}

Settings::Loaded Settings::load(const QString& path)
{
    return decodeFile(path, SetAside::yes);
}

Settings::Loaded Settings::peek(const QString& path)
{
    return decodeFile(path, SetAside::no);
}

Settings::Loaded Settings::decodeFile(const QString& path, SetAside setAsideBadFile)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        return {};
    const QByteArray bytes = file.readAll();
    if (file.error() != QFileDevice::NoError)
        return {};
    file.close();

    QJsonParseError error{};
    const QJsonDocument document = QJsonDocument::fromJson(bytes, &error);
    if (error.error != QJsonParseError::NoError) {
        if (setAsideBadFile == SetAside::yes)
            setAside(path, error.errorString() + QStringLiteral(" at offset %1").arg(error.offset));
        return {};
    }
    if (!document.isObject()) {
        if (setAsideBadFile == SetAside::yes)
            setAside(path, QStringLiteral("the top level is not an object"));
        return {};
    }
    return {decode(document.object()), false};
}

QByteArray Settings::toJson() const
{
    // QJsonObject keeps its keys sorted, so the file lists them alphabetically.
    const QJsonObject object{
        {QStringLiteral("speaker"), speaker},
        {QStringLiteral("route"), routeName(route)},
        {QStringLiteral("triggerOutput"), triggerOutput},
        {QStringLiteral("triggerConfigured"), triggerConfigured},
        {QStringLiteral("opticalOutput"), opticalOutput},
        {QStringLiteral("airplayOutput"), airplayOutput},
        {QStringLiteral("paused"), paused},
        {QStringLiteral("loginItemOffered"), loginItemOffered},
        {QStringLiteral("lastKnownHost"), lastKnownHost},
    };
    return QJsonDocument(object).toJson(QJsonDocument::Indented);
}

bool Settings::save() const
{
    return save(filePath());
}

bool Settings::save(const QString& path) const
{
    const QString folder = QFileInfo(path).absolutePath();
    if (!QDir().mkpath(folder))
        return failSave(QStringLiteral("could not create the folder ") + folder);

    // The bytes go to a temporary file beside the old one, which is renamed over it only
    // once they are all on disk: a crash or a full disk leaves the old file as it was.
    QSaveFile file(path);
    if (!file.open(QIODevice::WriteOnly))
        return failSave(file.errorString());
    file.setPermissions(ownerOnly);
    const QByteArray bytes = toJson();
    if (file.write(bytes) != bytes.size()) {
        const QString why = file.errorString();
        file.cancelWriting();
        return failSave(why);
    }
    if (!file.commit())
        return failSave(file.errorString());
    QFile::setPermissions(path, ownerOnly);
    return true;
}

void Settings::rememberTrigger(const QString& outputName, Route forRoute)
{
    if (outputName.isEmpty())
        return;
    if (forRoute == Route::Airplay)
        airplayOutput = outputName;
    else
        opticalOutput = outputName;
}
