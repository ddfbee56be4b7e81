#include "sonos/Tags.h"

namespace Tags {

std::optional<QString> element(QStringView name, QStringView text)
{
    const QString open = QStringLiteral("<%1>").arg(name);
    const QString close = QStringLiteral("</%1>").arg(name);
    const qsizetype openAt = text.indexOf(open);
    if (openAt < 0)
        return std::nullopt;
    const qsizetype start = openAt + open.size();
    const qsizetype end = text.indexOf(close, start);
    if (end < 0)
        return std::nullopt;
    return text.mid(start, end - start).toString();
}

} // namespace Tags
