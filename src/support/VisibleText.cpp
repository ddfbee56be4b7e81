#include "support/VisibleText.h"

#include <algorithm>

namespace {

bool mustEscape(char16_t c)
{
    return c < 0x20 || (c >= 0x7f && c <= 0x9f) || (c >= 0x202a && c <= 0x202e) ||
           (c >= 0x2066 && c <= 0x2069) || c == 0x2028 || c == 0x2029;
}

QString escaped(char16_t c)
{
    switch (c) {
    case 0x1b:
        return QStringLiteral("\\e");
    case u'\r':
        return QStringLiteral("\\r");
    case u'\n':
        return QStringLiteral("\\n");
    case u'\t':
        return QStringLiteral("\\t");
    default:
        break;
    }
    if (c < 0x80)
        return QStringLiteral("\\x%1").arg(uint(c), 2, 16, QLatin1Char('0'));
    return QStringLiteral("\\u%1").arg(uint(c), 4, 16, QLatin1Char('0'));
}

} // namespace

// Every character in the escaped set lies in the Basic Multilingual Plane, and no surrogate
// is in it, so a pass over UTF-16 units never splits a character it changes.
QString visibleText(const QString& text)
{
    const auto first =
        std::find_if(text.cbegin(), text.cend(), [](QChar c) { return mustEscape(c.unicode()); });
    if (first == text.cend())
        return text;

    QString out = text.first(first - text.cbegin());
    out.reserve(text.size() + 8);
    for (auto it = first; it != text.cend(); ++it) {
        if (mustEscape(it->unicode()))
            out += escaped(it->unicode());
        else
            out += *it;
    }
    return out;
}
