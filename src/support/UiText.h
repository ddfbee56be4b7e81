#pragma once

#include <QString>

// The program's string table. Every text a user reads is looked up here with its English
// wording as the key, and the English wording is what comes back when no translation is
// installed. Log lines are never looked up: they are for the maker, in English.
//
// Mark a text for lupdate at the place it is written with
// QT_TRANSLATE_NOOP("Velotide", "...") when it is looked up elsewhere.
inline constexpr const char* uiTextContext = "Velotide";

QString uiText(const char* english);
