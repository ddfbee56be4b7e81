#pragma once

#include "support/LockedBox.h"
#include "support/SerialQueue.h"

#include <QString>

// One log file with its single rotated generation. Each line goes to standard error at
// once, on the caller's thread, and to the file a moment later from a serial queue, so a
// caller never waits on the disk.
class LogFile {
public:
    static constexpr qint64 rotationSize = 2 * 1024 * 1024;

    explicit LogFile(QString path);

    const QString& path() const { return m_path; }
    QString rotatedPath() const { return m_path + QStringLiteral(".1"); }

    // Callable from any thread; never fails and never blocks on file I/O. The message is
    // written as one line, its control characters made visible (see visibleText).
    void info(const QString& message);
    // The last `count` line-feed separated pieces of the current file (an empty piece
    // after a final line feed counts), or "(no log file yet)".
    QString tail(int count) const;
    // For the uninstaller: no more lines anywhere, and returns only after every line
    // queued before it has been dealt with. There is no way back.
    void stop();
    // Waits until every line queued so far is in the file.
    void flush();

    static QString timestamp();

private:
    void append(const QByteArray& line);
    void rotateIfNeeded();

    QString m_path;
    LockedBox<bool> m_stopped{false};
    SerialQueue m_queue;
};

// The program's one logging call, writing to the user's state folder
// ($XDG_STATE_HOME/velotide/velotide.log).
namespace Log {
void info(const QString& message);
QString tail(int count);
void stop();
void flush();
QString filePath();
} // namespace Log
