#pragma once

#include <QCoreApplication>
#include <QTranslator>

// While it lives, every text of the program's context reads as its English key in capitals
// between guillemets, so that a looked-up text can be told from one that was not.
class MarkingTranslator : public QTranslator {
public:
    MarkingTranslator() { QCoreApplication::installTranslator(this); }
    ~MarkingTranslator() override { QCoreApplication::removeTranslator(this); }

    bool isEmpty() const override { return false; }
    QString translate(const char* context, const char* source, const char*, int) const override
    {
        if (qstrcmp(context, "Velotide") != 0)
            return {};
        return QStringLiteral("«") + QString::fromUtf8(source).toUpper() + QStringLiteral("»");
    }
};
