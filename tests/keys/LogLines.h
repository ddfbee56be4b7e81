#pragma once

#include "support/Log.h"

#include <QFile>
#include <QStringList>
#include <QTemporaryDir>

// Each test process writes a log of its own, so that runs side by side do not mix lines.
inline const bool logInPrivateFolder = [] {
    static QTemporaryDir folder;
    qputenv("XDG_STATE_HOME", QFile::encodeName(folder.path()));
    return true;
}();

// The log lines written since this object was made (messages only, without timestamps).
class LogLines {
public:
    LogLines() { m_skip = all().size(); }

    QStringList since() const { return all().mid(m_skip); }
    int count(const QString& message) const { return int(since().count(message)); }

private:
    static QStringList all()
    {
        Log::flush();
        QFile file(Log::filePath());
        if (!file.open(QIODevice::ReadOnly))
            return {};
        QStringList messages;
        for (const QByteArray& line : file.readAll().split('\n')) {
            if (line.size() > 20)
                messages << QString::fromUtf8(line.mid(20)); // after "yyyy-MM-dd HH:mm:ss "
        }
        return messages;
    }

    qsizetype m_skip = 0;
};
