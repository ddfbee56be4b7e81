#pragma once

#include "support/Log.h"

#include <QFile>
#include <QFileInfo>
#include <QStringList>
#include <QTemporaryDir>

// A test program that includes this logs to a folder of its own, chosen before its first
// line, so that runs side by side never mix lines.
inline const bool logInPrivateFolder = [] {
    static QTemporaryDir folder;
    qputenv("XDG_STATE_HOME", QFile::encodeName(folder.path()));
    return true;
}();

// The log lines written since the watch began, without their time stamps.
class LogWatch {
public:
    LogWatch()
    {
        Log::flush();
        m_start = QFileInfo(Log::filePath()).size();
    }

    QStringList lines() const
    {
        Log::flush();
        QFile file(Log::filePath());
        if (!file.open(QIODevice::ReadOnly) || !file.seek(m_start))
            return {};
        QStringList messages;
        for (const QString& line :
             QString::fromUtf8(file.readAll()).split(u'\n', Qt::SkipEmptyParts))
            messages.append(line.mid(QStringLiteral("yyyy-MM-dd HH:mm:ss ").size()));
        return messages;
    }

    qsizetype count(const QString& message) const { return lines().count(message); }

private:
    qint64 m_start = 0;
};
