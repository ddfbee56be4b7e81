#include "housekeeping/LoginItem.h"

#include "support/Log.h"
#include "support/ReadyFuture.h"

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QPromise>
#include <QSaveFile>
#include <QStandardPaths>

#include <memory>

namespace {

using Status = LoginItem::Status;

// Larger files are not ours to parse; they count as an entry that is there but unknown.
constexpr qint64 kEntryCap = 64 * 1024;

// The arguments of an Exec key, quoted as the desktop entry format wants: inside double
// quotes, a backslash escapes ", `, $ and itself; a literal % is written twice.
QString execQuoted(const QString& program)
{
    QString quoted;
    for (const QChar c : program) {
        if (c == u'"' || c == u'`' || c == u'$' || c == u'\\')
            quoted += u'\\';
        if (c == u'%')
            quoted += u'%';
        quoted += c;
    }
    return u'"' + quoted + u'"';
}

// The program an Exec key starts: its first word, unquoted.
QString execProgram(const QString& exec)
{
    const QString value = exec.trimmed();
    if (!value.startsWith(u'"'))
        return value.section(u' ', 0, 0);
    QString program;
    for (qsizetype i = 1; i < value.size(); ++i) {
        if (value[i] == u'"')
            break;
        if (value[i] == u'\\' && i + 1 < value.size())
            ++i;
        program += value[i];
    }
    return program.replace(QStringLiteral("%%"), QStringLiteral("%"));
}

bool programExists(const QString& program)
{
    if (program.isEmpty())
        return false;
    if (QDir::isAbsolutePath(program))
        return QFileInfo(program).isExecutable();
    return !QStandardPaths::findExecutable(program).isEmpty();
}

// The entry's state from its [Desktop Entry] group; the desktops switch an entry off with
// Hidden=true (the freedesktop way) or X-GNOME-Autostart-enabled=false (GNOME's).
Status readStatus(const QString& entryPath)
{
    QFile file(entryPath);
    if (!QFileInfo(entryPath).isFile() || file.size() > kEntryCap ||
        !file.open(QIODevice::ReadOnly))
        return QFileInfo::exists(entryPath) ? Status::requiresApproval : Status::notRegistered;
    bool inMainGroup = false;
    bool switchedOff = false;
    QString exec;
    for (const QByteArray& raw : file.readAll().split('\n')) {
        const QString line = QString::fromUtf8(raw).trimmed();
        if (line.startsWith(u'[')) {
            inMainGroup = line == QLatin1String("[Desktop Entry]");
            continue;
        }
        const qsizetype equals = line.indexOf(u'=');
        if (!inMainGroup || equals < 0)
            continue;
        const QString key = line.left(equals).trimmed();
        const QString value = line.mid(equals + 1).trimmed();
        if ((key == QLatin1String("Hidden") && value == QLatin1String("true")) ||
            (key == QLatin1String("X-GNOME-Autostart-enabled") && value == QLatin1String("false")))
            switchedOff = true;
        else if (key == QLatin1String("Exec"))
            exec = value;
    }
    if (switchedOff)
        return Status::requiresApproval;
    return programExists(execProgram(exec)) ? Status::enabled : Status::notFound;
}

QByteArray entryText(const QString& program)
{
    return "[Desktop Entry]\n"
           "Type=Application\n"
           "Name=Velotide\n"
           "Comment=Send the keyboard's volume keys to a Sonos speaker\n"
           "Exec=" +
           execQuoted(program).toUtf8() +
           "\n"
           "Icon=com.brindlewerk.velotide\n"
           "Terminal=false\n"
           "NoDisplay=true\n"
           "X-GNOME-Autostart-enabled=true\n";
}

// An empty answer is success; otherwise the reason.
QString writeEntry(const QString& entryPath, const QString& program)
{
    if (!QDir().mkpath(QFileInfo(entryPath).absolutePath()))
        return QStringLiteral("cannot create ") + QFileInfo(entryPath).absolutePath();
    QSaveFile file(entryPath);
    if (!file.open(QIODevice::WriteOnly) || file.write(entryText(program)) < 0 || !file.commit())
        return file.errorString();
    return {};
}

QString removeEntry(const QString& entryPath)
{
    QFile file(entryPath);
    if (!file.remove() && QFileInfo::exists(entryPath))
        return file.errorString();
    return {};
}

} // namespace

LoginItem::LoginItem(QString entryPath, QString programPath, QObject* parent)
    : QObject(parent)
    , m_entryPath(entryPath.isEmpty() ? defaultEntryPath() : std::move(entryPath))
    , m_programPath(programPath.isEmpty() ? QCoreApplication::applicationFilePath()
                                          : std::move(programPath))
{
    refresh();
}

QString LoginItem::defaultEntryPath()
{
    return QStandardPaths::writableLocation(QStandardPaths::GenericConfigLocation) +
           QStringLiteral("/autostart/com.brindlewerk.velotide.desktop");
}

bool LoginItem::isInstalledPath(const QString& programPath, const QString& home)
{
    const QString path = QDir::cleanPath(programPath);
    QStringList places{QStringLiteral("/usr/"), QStringLiteral("/opt/")};
    if (!home.isEmpty())
        places << QDir::cleanPath(home) + QStringLiteral("/.local/");
    for (const QString& place : places)
        if (path.startsWith(place))
            return true;
    return false;
}

void LoginItem::refresh()
{
    m_worker.async([this, path = m_entryPath] {
        const Status status = readStatus(path);
        QMetaObject::invokeMethod(
            this, [this, status] { learn(status); }, Qt::QueuedConnection);
    });
}

QFuture<bool> LoginItem::setEnabled(bool on)
{
    auto promise = std::make_shared<QPromise<bool>>();
    QFuture<bool> answer = promise->future();
    promise->start();
    m_worker.async([this, on, promise, path = m_entryPath, program = m_programPath] {
        const Status before = readStatus(path);
        Status after = before;
        QString failure;
        QString done;
        if (on && before != Status::enabled) {
            failure = writeEntry(path, program);
            done = QStringLiteral("registered as a login item");
        } else if (!on && before != Status::notRegistered) {
            failure = removeEntry(path);
            done = QStringLiteral("removed from login items");
        }
        if (!done.isEmpty()) {
            after = readStatus(path);
            if (failure.isEmpty())
                Log::info(done);
            else
                Log::info(QStringLiteral("login item ") +
                          (on ? QStringLiteral("registration") : QStringLiteral("removal")) +
                          QStringLiteral(" failed: ") + failure);
        }
        QMetaObject::invokeMethod(
            this,
            [this, promise, after, ok = failure.isEmpty()] {
                learn(after);
                promise->addResult(ok);
                promise->finish();
            },
            Qt::QueuedConnection);
    });
    return answer;
}

QFuture<bool> LoginItem::registerIfInstalled()
{
    if (!isInstalledPath(m_programPath, QDir::homePath())) {
        Log::info(QStringLiteral("not registering a login item: running from ") + m_programPath);
        return readyFuture(false);
    }
    return setEnabled(true);
}

void LoginItem::learn(Status status)
{
    if (status == m_status)
        return;
    m_status = status;
    emit changed(status);
}
