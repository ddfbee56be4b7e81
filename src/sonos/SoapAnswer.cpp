#include "sonos/SoapAnswer.h"

#include <charconv>

namespace SoapAnswer {

std::optional<qint64> decimalInteger(QStringView text)
{
    QByteArray ascii;
    if (text.startsWith(u'+') || text.startsWith(u'-')) {
        if (text.front() == u'-')
            ascii += '-'; // from_chars takes a minus sign but not a plus
        text = text.mid(1);
    }
    if (text.isEmpty())
        return std::nullopt;
    for (const QChar c : text) {
        if (c < u'0' || c > u'9')
            return std::nullopt;
    }
    ascii += text.toLatin1();
    qint64 value = 0;
    const auto [end, error] = std::from_chars(ascii.cbegin(), ascii.cend(), value);
    if (error != std::errc() || end != ascii.cend())
        return std::nullopt;
    return value;
}

} // namespace SoapAnswer
