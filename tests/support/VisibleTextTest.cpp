#include "support/VisibleText.h"

#include <gtest/gtest.h>

namespace {

TEST(VisibleText, ControlCharactersAreWrittenOutAndEveryScriptStays)
{
    const std::pair<QString, QString> cases[] = {
        {QStringLiteral("Küche — 寝室 غرفة\u200f 🔊 C:\\n"),
         QStringLiteral("Küche — 寝室 غرفة\u200f 🔊 C:\\n")},
        {QStringLiteral("\x1b]0;owned\x07\x1b[2J"), QStringLiteral("\\e]0;owned\\x07\\e[2J")},
        {QStringLiteral("a\r\nb\tc"), QStringLiteral("a\\r\\nb\\tc")},
        {QStringLiteral("\0x\x7f"), QStringLiteral("\\x00x\\x7f")},
        {QStringLiteral("\u009b2J\u0085\u202eon\u2066\u2069\u2028"),
         QStringLiteral("\\u009b2J\\u0085\\u202eon\\u2066\\u2069\\u2028")},
    };
    for (const auto& [text, shown] : cases)
        EXPECT_EQ(visibleText(text), shown) << shown.toStdString();
}

} // namespace
