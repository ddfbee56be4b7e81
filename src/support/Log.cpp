#include "support/Log.h"

#include "support/VisibleText.h"

#include <QDateTime>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QStringDecoder>

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

// Writes every byte unless the descriptor refuses; false (with errno set) when it does.
bool writeAll(int fd, const QByteArray& bytes)
{
    const char* data = bytes.constData();
    qsizetype left = bytes.size();
    while (left > 0) {
        const ssize_t n = ::write(fd, data, size_t(left));
        if (n < 0 && errno == EINTR)
            continue;
        if (n <= 0)
            return false;
        data += n;
        left -= n;
    }
    return true;
}

QString stateFolder()
{
    const QString xdg = qEnvironmentVariable("XDG_STATE_HOME");
    if (!xdg.isEmpty() && QDir::isAbsolutePath(xdg))
        return xdg;
    return QDir::homePath() + QStringLiteral("/.local/state");
}

} // namespace

LogFile::LogFile(QString path)
    : m_path(std::move(path))
{
}

QString LogFile::timestamp()
{
    return QDateTime::currentDateTime().toString(QStringLiteral("yyyy-MM-dd HH:mm:ss"));
}

void LogFile::info(const QString& message)
{
    if (m_stopped.get())
        return;
    // Messages carry names and errors from the network: made visible here, every caller's
    // line stays one line, and no escape sequence reaches a terminal showing the log.
    QByteArray line = (timestamp() + u' ' + visibleText(message) + u'\n').toUtf8();
    writeAll(STDERR_FILENO, line);
    m_queue.async([this, line = std::move(line)] { append(line); });
}

void LogFile::append(const QByteArray& line)
{
    if (m_stopped.get())
        return;
    rotateIfNeeded();

    const QByteArray path = QFile::encodeName(m_path);
    const int fd = ::open(path.constData(), O_WRONLY | O_APPEND | O_CLOEXEC);
    if (fd >= 0) {
        if (!writeAll(fd, line)) {
            const QByteArray why =
                "could not write to the log: " + QByteArray(std::strerror(errno));
            writeAll(STDERR_FILENO, why + '\n');
        }
        ::close(fd);
        return;
    }

    // No file yet: it starts with this line, readable by its owner only. The folder is
    // made on the way, so a fresh account keeps its very first lines.
    QDir().mkpath(QFileInfo(m_path).absolutePath());
    const int created = ::open(path.constData(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
    if (created < 0)
        return;
    ::fchmod(created, 0600);
    writeAll(created, line);
    ::close(created);
}

void LogFile::rotateIfNeeded()
{
    struct stat st {};
    if (::stat(QFile::encodeName(m_path).constData(), &st) != 0)
        return;
    if (st.st_size <= rotationSize)
        return;
    QFile::remove(rotatedPath());
    QFile::rename(m_path, rotatedPath());
}

QString LogFile::tail(int count) const
{
    const QString missing = QStringLiteral("(no log file yet)");
    QFile file(m_path);
    if (!file.open(QIODevice::ReadOnly))
        return missing;
    const QByteArray bytes = file.readAll();
    auto decoder = QStringDecoder(QStringDecoder::Utf8, QStringDecoder::Flag::Stateless);
    const QString text = decoder.decode(bytes);
    if (decoder.hasError())
        return missing;

    const QStringList pieces = text.split(u'\n', Qt::KeepEmptyParts);
    const qsizetype keep = std::min<qsizetype>(std::max(count, 0), pieces.size());
    return pieces.mid(pieces.size() - keep).join(u'\n');
}

void LogFile::stop()
{
    m_stopped.set(true);
    m_queue.sync();
}

void LogFile::flush()
{
    m_queue.sync();
}

namespace Log {

static LogFile& shared()
{
    static LogFile file(stateFolder() + QStringLiteral("/velotide/velotide.log"));
    return file;
}

void info(const QString& message)
{
    shared().info(message);
}

QString tail(int count)
{
    return shared().tail(count);
}

void stop()
{
    shared().stop();
}

void flush()
{
    shared().flush();
}

QString filePath()
{
    return shared().path();
}

} // namespace Log
