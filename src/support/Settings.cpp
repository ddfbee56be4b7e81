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

// Reads the known keys one at a time. A missing key takes its default quietly; one present
// with a value this version cannot use takes its default too, but is noted: the file then
// holds something a rewrite would lose.
struct Decoder {
    explicit Decoder(const QJsonObject& object)
        : object(object)
    {
    }

    const QJsonObject& object;
    QStringList wrongTypes;
    std::optional<QString> unknownRoute;

    QString string(QLatin1StringView key, QString fallback = {})
    {
        const QJsonValue value = object.value(key);
        if (value.isString())
            return value.toString();
        if (!value.isUndefined())
            wrongTypes.append(key);
        return fallback;
    }

    std::optional<bool> boolean(QLatin1StringView key)
    {
        const QJsonValue value = object.value(key);
        if (value.isBool())
            return value.toBool();
        if (!value.isUndefined())
            wrongTypes.append(key);
        return std::nullopt;
    }

    bool isClean() const { return wrongTypes.isEmpty() && !unknownRoute; }
};

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

Settings decode(Decoder& keys)
{
    Settings s;
    s.speaker = keys.string(QLatin1StringView("speaker"));
    const QString route = keys.string(QLatin1StringView("route"), QStringLiteral("optical"));
    if (const auto known = routeFromName(route))
        s.route = *known;
    else
        keys.unknownRoute = route;
    s.triggerOutput = keys.string(QLatin1StringView("triggerOutput"));
    // Files written before the flag existed count as configured when they name a trigger.
    s.triggerConfigured =
        keys.boolean(QLatin1StringView("triggerConfigured")).value_or(!s.triggerOutput.isEmpty());
    s.opticalOutput = keys.string(QLatin1StringView("opticalOutput"));
    s.airplayOutput = keys.string(QLatin1StringView("airplayOutput"));
    s.paused = keys.boolean(QLatin1StringView("paused")).value_or(false);
    s.loginItemOffered = keys.boolean(QLatin1StringView("loginItemOffered")).value_or(false);
    s.lastKnownHost = keys.string(QLatin1StringView("lastKnownHost"));
    s.automaticUpdateChecks =
        keys.boolean(QLatin1StringView("automaticUpdateChecks")).value_or(true);
    return s;
}

QJsonObject encode(const Settings& s)
{
    return {
        {QStringLiteral("speaker"), s.speaker},
        {QStringLiteral("route"), Settings::routeName(s.route)},
        {QStringLiteral("triggerOutput"), s.triggerOutput},
        {QStringLiteral("triggerConfigured"), s.triggerConfigured},
        {QStringLiteral("opticalOutput"), s.opticalOutput},
        {QStringLiteral("airplayOutput"), s.airplayOutput},
        {QStringLiteral("paused"), s.paused},
        {QStringLiteral("loginItemOffered"), s.loginItemOffered},
        {QStringLiteral("lastKnownHost"), s.lastKnownHost},
        {QStringLiteral("automaticUpdateChecks"), s.automaticUpdateChecks},
    };
}

QString errorText(int error)
{
    return QString::fromLocal8Bit(std::strerror(error));
}

bool exists(const QString& path)
{
    struct stat st {};
    return ::lstat(QFile::encodeName(path).constData(), &st) == 0;
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

// The file's name with a further extension, `kind` and the time in UTC with hyphens for
// colons (settings.json.corrupt-2025-03-02T14-03-07Z); a counter follows a name in use.
QString asideName(const QString& path, const char* kind)
{
    const QString stamp = QDateTime::currentDateTimeUtc().toString(Qt::ISODate).replace(u':', u'-');
    const QString base = path + u'.' + QLatin1StringView(kind) + u'-' + stamp;
    QString name = base;
    for (int n = 2; exists(name); ++n)
        name = base + u'-' + QString::number(n);
    return name;
}

// The file is moved out of the way so that the next save starts afresh, and the user still
// has what was in it. Where it cannot be moved it stays: the next save copies it first.
void setAside(const QString& path, const QString& why, bool mayMove)
{
    const QString head = QStringLiteral("settings unreadable (") + why + QStringLiteral("); ");
    if (!mayMove) {
        Log::info(head + QStringLiteral("left as it is"));
        return;
    }
    const QString backup = asideName(path, "corrupt");
    const QByteArray backupName = QFile::encodeName(backup);
    if (::rename(QFile::encodeName(path).constData(), backupName.constData()) != 0) {
        Log::info(head + QStringLiteral("could not move it aside (") + errorText(errno) +
                  QStringLiteral("), left as it is"));
        return;
    }
    // It may have been readable by others; what is kept aside is the owner's alone.
    const QString privateNote =
        ::chmod(backupName.constData(), 0600) == 0
            ? QString()
            : QStringLiteral(" (still readable by others: ") + errorText(errno) + u')';
    Log::info(head + QStringLiteral("moved to ") + QFileInfo(backup).fileName() + privateNote);
}

bool failSave(const QString& why)
{
    Log::info(QStringLiteral("could not save settings: ") + why);
    return false;
}

// The top-level object, or why the bytes hold none.
QString parseObject(const QByteArray& bytes, QJsonObject& object)
{
    QJsonParseError error{};
    const QJsonDocument document = QJsonDocument::fromJson(bytes, &error);
    if (error.error != QJsonParseError::NoError)
        return error.errorString() + QStringLiteral(" at offset %1").arg(error.offset);
    if (!document.isObject())
        return QStringLiteral("the top level is not an object");
    object = document.object();
    return {};
}

// Keeps the bytes of a file about to be replaced beside it, created owner-only and never
// over another file or through a link.
bool keepCopy(const QString& path, const QByteArray& bytes)
{
    QFile copy(asideName(path, "backup"));
    if (!copy.open(QIODevice::WriteOnly | QIODevice::NewOnly, ownerOnly))
        return failSave(QStringLiteral("could not keep a copy of the old file (") +
                        copy.errorString() + u')');
    if (copy.write(bytes) != bytes.size() || !copy.flush()) {
        const QString why = copy.errorString();
        copy.remove();
        return failSave(QStringLiteral("could not keep a copy of the old file (") + why + u')');
    }
    copy.close();
    Log::info(QStringLiteral("settings: kept a copy of the old file as ") +
              QFileInfo(copy).fileName() + QStringLiteral(" before rewriting it"));
    return true;
}

// Each missing folder is made owner-only, as the XDG base directory rules ask.
bool makeFolders(const QString& folder)
{
    if (QFileInfo(folder).isDir())
        return true;
    return makeFolders(QFileInfo(folder).absolutePath()) &&
           (::mkdir(QFile::encodeName(folder).constData(), 0700) == 0 ||
            (errno == EEXIST && QFileInfo(folder).isDir()));
}

// The settings folder is the owner's alone, even where an earlier version made it readable
// by others. What the owner may do is left as it is.
bool makePrivateFolder(const QString& folder)
{
    if (!makeFolders(folder))
        return false;
    const QByteArray name = QFile::encodeName(folder);
    struct stat st {};
    if (::stat(name.constData(), &st) == 0 && (st.st_mode & 077) != 0 &&
        ::chmod(name.constData(), st.st_mode & 0700) != 0) {
        Log::info(QStringLiteral("settings: could not make the folder ") + folder +
                  QStringLiteral(" private (") + errorText(errno) + u')');
    }
    return true;
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

    QJsonObject object;
    if (const QString why = parseObject(file.bytes, object); !why.isEmpty()) {
        setAside(path, why, mayMove);
        return {};
    }
    Decoder keys(object);
    const Settings settings = decode(keys);
    if (keys.unknownRoute) {
        Log::info(QStringLiteral("settings: unknown route ") + quoted(*keys.unknownRoute) +
                  QStringLiteral(", using optical"));
    }
    if (!keys.wrongTypes.isEmpty()) {
        Log::info(QStringLiteral("settings: wrong type for ") + keys.wrongTypes.join(u", ") +
                  QStringLiteral("; using the defaults"));
    }
    return {settings, false};
}

QByteArray Settings::toJson() const
{
    // QJsonObject keeps its keys sorted, so the file lists them alphabetically.
    return QJsonDocument(encode(*this)).toJson(QJsonDocument::Indented);
}

bool Settings::save() const
{
    return save(filePath());
}

bool Settings::save(const QString& path) const
{
    const QString folder = QFileInfo(path).absolutePath();
    if (!makePrivateFolder(folder))
        return failSave(QStringLiteral("could not create the folder ") + folder);

    // The file there now is replaced only when it is a regular file whose every byte this
    // version has read. A link is someone's own arrangement (settings kept with the rest of
    // their dotfiles, say): writing through it would change a file elsewhere, and replacing
    // it would quietly undo the arrangement, so it is left alone and the save fails, which
    // the user is told. Keys from a newer version are carried over, and a file that did not
    // decode cleanly is copied aside first, so a rewrite loses nothing.
    const FileRead old = readSettingsFile(path);
    const QString name = QFileInfo(path).fileName();
    if (old.isLink)
        return failSave(name + QStringLiteral(" is a symbolic link, left as it is"));
    QJsonObject object;
    switch (old.found) {
    case FileRead::Found::nothing:
        break;
    case FileRead::Found::unusable:
        return failSave(QStringLiteral("could not read the existing ") + name +
                        QStringLiteral(" (") + old.problem + QStringLiteral("), left as it is"));
    case FileRead::Found::tooLarge:
        return failSave(QStringLiteral("the existing ") + name +
                        QStringLiteral(" is larger than 1 MiB, left as it is"));
    case FileRead::Found::bytes: {
        const bool isObject = parseObject(old.bytes, object).isEmpty();
        Decoder keys(object);
        decode(keys);
        if (!(isObject && keys.isClean()) && !keepCopy(path, old.bytes))
            return false;
        break;
    }
    }
    const QJsonObject known = encode(*this);
    for (auto it = known.begin(); it != known.end(); ++it)
        object.insert(it.key(), it.value());

    // The bytes go to a temporary file beside the old one, which is renamed over it only
    // once they are all on disk: a crash or a full disk leaves the old file as it was.
    QSaveFile file(path);
    if (!file.open(QIODevice::WriteOnly))
        return failSave(file.errorString());
    file.setPermissions(ownerOnly);
    const QByteArray bytes = QJsonDocument(object).toJson(QJsonDocument::Indented);
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
