#pragma once

#include <QList>
#include <QMap>
#include <QString>

// What a problem report carries besides the user's own words: diagnostic facts by key and
// the end of the log. A plain value, made off the main thread and shown in the report window.
struct ProblemReport {
    // The log tail's limit: a longer tail keeps its last kLogTailLimit characters, after a
    // line that says lines were left out.
    static constexpr int kLogTailLimit = 6000;

    // The facts the preview shows, in its order, each with its label.
    struct Label {
        const char* key;
        const char* label;
    };
    static const QList<Label>& labels();

    QMap<QString, QString> diagnostics;
    QString logTail;

    // A report whose log tail is `logTail` cut to the limit.
    static ProblemReport make(QMap<QString, QString> diagnostics, const QString& logTail);
    static QString cutLogTail(const QString& logTail);

    // The end of the log at `path`, taking the end of its rotated generation in front when the
    // current file alone is shorter than the limit (just after a rotation). A missing file
    // gives nothing; bytes that are not UTF-8 are replaced, never dropped with what follows.
    static QString readLogTail(const QString& path, const QString& rotatedPath);

    // What the report window shows as "what will be sent".
    QString previewText() const;
};
