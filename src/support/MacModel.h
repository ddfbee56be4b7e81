#pragma once

#include <QString>

// The marketing names of Apple's computers by hardware identifier (Mac14,2 and so on): Apple
// hardware running Linux reports these identifiers as its product name, and a person
// reading a problem report recognises the name, not the identifier.
namespace MacModel {

// "MacBook Air (M2, 2022) [Mac14,2]" for a known identifier (exact, case-sensitive); any
// other text comes back unchanged.
QString describe(const QString& identifier);

} // namespace MacModel
