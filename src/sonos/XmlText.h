#pragma once

#include <QString>
#include <QStringView>

// Text as it stands inside XML, read back to what it means.
namespace XmlText {

// Undoes one level of escaping: the five predefined entities and numeric character references
// ("&#38;", "&#x26;"), in one pass, so that a doubly escaped "&amp;lt;" keeps one level
// ("&lt;"). Anything else that begins with "&" stays as it stands.
QString unescape(QStringView text);

} // namespace XmlText
