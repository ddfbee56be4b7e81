#include "emulator/Emulator.h"

#include <QRegularExpression>

namespace emulator {

QByteArray Request::header(const QByteArray& name) const
{
    for (const auto& [key, value] : headers) {
        if (key.compare(name, Qt::CaseInsensitive) == 0)
            return value;
    }
    return {};
}

QString Request::argument(const QString& name) const
{
    // Any namespace prefix, any attributes: the test wants the value, not the spelling.
    const QString n = QRegularExpression::escape(name);
    const QRegularExpression element(
        QStringLiteral("<(?:[\\w.-]+:)?%1(?:\\s[^>]*)?>(.*?)</(?:[\\w.-]+:)?%1\\s*>").arg(n),
        QRegularExpression::DotMatchesEverythingOption);
    return element.match(QString::fromUtf8(body)).captured(1);
}

} // namespace emulator
