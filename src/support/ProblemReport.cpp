#include "support/ProblemReport.h"

#include <QFile>
#include <QStringDecoder>
#include <QStringList>

namespace {

// Enough bytes from the end of a file for kLogTailLimit characters of any script.
constexpr qint64 kLogBytes = 4 * (ProblemReport::kLogTailLimit + 1);

// The last kLogBytes of a file, from the start of a whole line where the read began inside
// one. Reads from one open descriptor, so a rotation meanwhile (a rename) does not disturb it.
QString fileEnd(const QString& path)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        return {};
    const qint64 size = file.size();
    const bool cut = size > kLogBytes;
    if (cut && !file.seek(size - kLogBytes))
        return {};
    QByteArray bytes = file.read(kLogBytes);
    if (cut) {
        const qsizetype lineStart = bytes.indexOf('\n');
        bytes = lineStart < 0 ? QByteArray() : bytes.mid(lineStart + 1);
    }
    auto decoder = QStringDecoder(QStringDecoder::Utf8, QStringDecoder::Flag::Stateless);
    return decoder.decode(bytes);
}

} // namespace

const QList<ProblemReport::Label>& ProblemReport::labels()
{
    static const QList<Label> nine{
        {"version", "Version"},           {"system", "System"},     {"desktop", "Desktop"},
        {"sound_server", "Sound server"}, {"computer", "Computer"}, {"speaker", "Speaker"},
        {"last_error", "Last error"},     {"outputs", "Outputs"},   {"armed", "Volume keys armed"},
    };
    return nine;
}

ProblemReport ProblemReport::make(QMap<QString, QString> diagnostics, const QString& logTail)
{
    return {std::move(diagnostics), cutLogTail(logTail)};
}

QString ProblemReport::cutLogTail(const QString& logTail)
{
    if (logTail.size() <= kLogTailLimit)
        return logTail;
    return QStringLiteral("…earlier lines trimmed…\n") + logTail.right(kLogTailLimit);
}

QString ProblemReport::readLogTail(const QString& path, const QString& rotatedPath)
{
    QString tail = fileEnd(path);
    if (tail.size() <= kLogTailLimit) {
        const QString earlier = fileEnd(rotatedPath);
        if (!earlier.isEmpty() && !tail.isEmpty() && !earlier.endsWith(u'\n'))
            tail.prepend(u'\n');
        tail.prepend(earlier);
    }
    return tail;
}

QString ProblemReport::previewText() const
{
    QStringList lines;
    for (const Label& label : labels()) {
        const QString value = diagnostics.value(QString::fromLatin1(label.key));
        if (!value.isEmpty())
            lines << QString::fromLatin1(label.label) + QStringLiteral(": ") + value;
    }
    if (!logTail.isEmpty())
        lines << QString() << QStringLiteral("Recent log:\n") + logTail;
    return lines.join(u'\n');
}
