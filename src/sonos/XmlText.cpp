#include "sonos/XmlText.h"

#include <optional>

namespace XmlText {

namespace {

// The longest reference read: "&#x10FFFF;" and "&#1114111;" are ten characters.
constexpr qsizetype kLongestReference = 10;

bool isDigit(QChar c, bool hex)
{
    const char16_t u = c.unicode();
    return (u >= u'0' && u <= u'9') ||
           (hex && ((u >= u'a' && u <= u'f') || (u >= u'A' && u <= u'F')));
}

// "#38" or "#x26" without the "#": a character that XML may carry, else nothing.
std::optional<char32_t> numeric(QStringView digits)
{
    const bool hex = digits.startsWith(u'x') || digits.startsWith(u'X');
    const QStringView number = hex ? digits.mid(1) : digits;
    if (number.isEmpty())
        return std::nullopt;
    for (QChar c : number)
        if (!isDigit(c, hex))
            return std::nullopt;
    bool ok = false;
    const uint value = number.toUInt(&ok, hex ? 16 : 10);
    if (!ok || value == 0 || value > 0x10FFFF || (value >= 0xD800 && value <= 0xDFFF))
        return std::nullopt;
    return char32_t(value);
}

std::optional<char32_t> meaning(QStringView name)
{
    if (name == u"amp")
        return U'&';
    if (name == u"lt")
        return U'<';
    if (name == u"gt")
        return U'>';
    if (name == u"quot")
        return U'"';
    if (name == u"apos")
        return U'\'';
    if (name.size() > 1 && name.front() == u'#')
        return numeric(name.mid(1));
    return std::nullopt;
}

} // namespace

QString unescape(QStringView text)
{
    QString plain;
    plain.reserve(text.size());
    qsizetype at = 0;
    while (at < text.size()) {
        const qsizetype amp = text.indexOf(u'&', at);
        if (amp < 0)
            break;
        plain += text.mid(at, amp - at);
        const qsizetype semicolon = text.mid(amp, kLongestReference + 1).indexOf(u';');
        const std::optional<char32_t> c =
            semicolon > 1 ? meaning(text.mid(amp + 1, semicolon - 1)) : std::nullopt;
        if (!c) {
            plain += u'&';
            at = amp + 1;
            continue;
        }
        plain += QString::fromUcs4(&*c, 1);
        at = amp + semicolon + 1;
    }
    plain += text.mid(at);
    return plain;
}

} // namespace XmlText
