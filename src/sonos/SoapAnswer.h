#pragma once

#include <QString>
#include <QStringView>

#include <optional>

// Readings of the values inside a player's answers.
namespace SoapAnswer {

// An optional "+" or "-" and one or more ASCII digits, nothing else, within the signed
// 64-bit range. Anything else (empty, blanks, letters, overflow) is absent.
std::optional<qint64> decimalInteger(QStringView text);

// Track metadata arrives as escaped DIDL-Lite. Undoes one level of escaping, "&amp;" last,
// so that a doubly escaped "&amp;lt;" keeps one level ("&lt;"). No other entity is touched.
QString unescapeMetadata(QString text);

} // namespace SoapAnswer
