#include "support/Settings.h"

#include "support/Log.h"

#include <QDateTime>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QJsonDocument>
#include <QJsonObject>
#include <QSaveFile>

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <optional>
#include <sys/stat.h>
#include <unistd.h>

namespace {

constexpr QFileDevice::Permissions ownerOnly = QFileDevice::ReadOwner | QFileDevice::WriteOwner;

// A real file is a few hundred bytes. Anything bigger is not one this program wrote, and
// reading it whole could take all the memory there is.
constexpr qint64 maxFileSize = 1024 * 1024;

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

QString errorText(int error)
{
    return QString::fromLocal8Bit(std::strerror(error));
}

// What is at the settings path, read without ever waiting on it: only a regular file is
// opened, and only up to maxFileSize.
struct FileRead {
    enum class Found { nothing, bytes, unusable, tooLarge };
    Found found = Found::nothing;
    QByteArray bytes;
    QString problem; // when unusable
    bool isLink = false;
};

FileRead readSettingsFile(const QString& path)
{
    using Found = FileRead::Found;
    const QByteArray name = QFile::encodeName(path);
    FileRead read;
    const auto unusable = [&read](QString problem) {
        read.found = Found::unusable;
        read.problem = std::move(problem);
        return read;
    };
    struct stat st {};
    if (::lstat(name.constData(), &st) != 0)
        return errno == ENOENT ? read : unusable(errorText(errno));
    // A link is followed for reading only (see Settings::save), and only to a regular file.
    read.isLink = S_ISLNK(st.st_mode);
    if (read.isLink && ::stat(name.constData(), &st) != 0)
        return unusable(errorText(errno));
    if (!S_ISREG(st.st_mode))
        return unusable(QStringLiteral("not a regular file"));

    // Should a FIFO have taken the file's place since, opening it does not wait for a writer.
    const int fd = ::open(name.constData(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
    if (fd < 0)
        return unusable(errorText(errno));
    QString problem;
    if (::fstat(fd, &st) != 0 || !S_ISREG(st.st_mode)) {
        problem = QStringLiteral("not a regular file");
    } else if (st.st_size <= maxFileSize) {
        // It may grow meanwhile: reading stops one chunk past the limit.
        char chunk[16384];
        while (read.bytes.size() <= maxFileSize) {
            const ssize_t n = ::read(fd, chunk, sizeof chunk);
            if (n < 0 && errno == EINTR)
                continue;
            if (n < 0)
                problem = errorText(errno);
            if (n <= 0)
                break;
            read.bytes.append(chunk, n);
        }
    }
    ::close(fd);
    if (!problem.isEmpty())
        return unusable(problem);
    read.found = st.st_size > maxFileSize || read.bytes.size() > maxFileSize ? Found::tooLarge
                                                                             : Found::bytes;
    return read;
}

void setAside(const QString& path, const QString& why, bool mayMove)
{
    const QString head = QStringLiteral("settings unreadable (") + why + QStringLiteral("); ");
    if (!mayMove) {
        Log::info(head + QStringLiteral("left as it is"));
        return;
    }
    const QString stamp = QDateTime::currentDateTimeUtc().toString(Qt::ISODate).replace(u':', u'-');
    const QString backup = path + QStringLiteral(".corrupt-") + stamp;
    QFile::rename(path, backup);
    Log::info(head + QStringLiteral("moved to ") + QFileInfo(backup).fileName());
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
    const FileRead file = readSettingsFile(path);
    const QString name = QFileInfo(path).fileName();
    const bool mayMove = setAsideBadFile == SetAside::yes && !file.isLink;
    switch (file.found) {
    case FileRead::Found::nothing:
        return {};
    case FileRead::Found::unusable:
        Log::info(QStringLiteral("settings: could not read ") + name + QStringLiteral(" (") +
                  file.problem + QStringLiteral("); using the defaults and leaving it as it is"));
        return {};
    case FileRead::Found::tooLarge:
        setAside(path, QStringLiteral("larger than 1 MiB"), mayMove);
        return {};
    case FileRead::Found::bytes:
        break;
    }
    if (file.isLink) {
        Log::info(QStringLiteral("settings: ") + name +
                  QStringLiteral(" is a symbolic link; it is read but never written"));
    }

    QJsonParseError error{};
    const QJsonDocument document = QJsonDocument::fromJson(file.bytes, &error);
    if (error.error != QJsonParseError::NoError) {
        setAside(path, error.errorString() + QStringLiteral(" at offset %1").arg(error.offset),
                 mayMove);
        return {};
    }
    if (!document.isObject()) {
        setAside(path, QStringLiteral("the top level is not an object"), mayMove);
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

    // The file there now is replaced only when it is a regular file. A link is someone's own
    // arrangement (settings kept with the rest of their dotfiles, say): writing through it
    // would change a file elsewhere, and replacing it would quietly undo the arrangement, so
    // it is left alone and the save fails, which the user is told.
    const FileRead old = readSettingsFile(path);
    const QString name = QFileInfo(path).fileName();
    if (old.isLink)
        return failSave(name + QStringLiteral(" is a symbolic link, left as it is"));
    if (old.found == FileRead::Found::unusable) {
        return failSave(QStringLiteral("could not read the existing ") + name +
                        QStringLiteral(" (") + old.problem + QStringLiteral("), left as it is"));
    }
    if (old.found == FileRead::Found::tooLarge) {
        return failSave(QStringLiteral("the existing ") + name +
                        QStringLiteral(" is larger than 1 MiB, left as it is"));
    }

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
