#pragma once

#include <QString>

// The text as a terminal or a log line may show it: every character that would act rather
// than print is written out as an escape, so a name from the network can neither clear the
// screen, retitle the window, start a new line nor reorder the line it sits in. Letters of
// any script, and every other printing character, stay as they are; a text with nothing to
// escape comes back as it is, without a copy.
//
// - C0 controls and DEL: ESC, CR, LF and TAB as \e \r \n \t, the rest as \x00 ... \x7f.
//   A tab is made visible too: it is how a field could be pushed out of its column.
// - C1 controls (U+0080 to U+009F) as \u0080 ...: some terminals take U+009B as the start
//   of a control sequence and U+0085 as a new line.
// - The bidirectional embeddings, overrides and isolates (U+202A to U+202E, U+2066 to
//   U+2069) as \u202e ...: an unclosed one reverses the rest of the line, fixed words
//   included, which is how a forged line reads as genuine. The marks LRM and RLM end with
//   the character they sit by and belong in right-to-left names; they stay.
// - The line and paragraph separators U+2028 and U+2029, which editors and log viewers
//   break lines at.
//
// A backslash stays a backslash: the aim is a safe, single line, not a reversible encoding,
// and ordinary text (paths, names) must read exactly as before.
QString visibleText(const QString& text);
