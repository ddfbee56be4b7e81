#pragma once

#include <QString>
#include <QStringView>

#include <optional>

// Readings of the values inside a player's answers.
namespace SoapAnswer {

// An optional "+" or "-" and one or more ASCII digits, nothing else, within the signed
// 64-bit range. Anything else (empty, blanks, letters, overflow) is absent.
std::optional<qint64> decimalInteger(QStringView text);

} // namespace SoapAnswer
