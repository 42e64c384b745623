#include "util/CodePage.h"

#include <gtest/gtest.h>

namespace {

using quorel::util::Utf8ToWindows1252;
using quorel::util::Windows1252ToUtf8;

TEST(CodePageTest, roundTripsTheCharactersOfFrenchTexts) {
    const std::string text = "Définition d'un critère — coût 5 € à Noël, «souple»";
    const std::string bytes = Utf8ToWindows1252(text);
    EXPECT_EQ(bytes.find("\xE9"), 1u);                // é is one byte
    EXPECT_NE(bytes.find('\x80'), std::string::npos); // the euro sign
    EXPECT_EQ(Windows1252ToUtf8(bytes), text);
}

TEST(CodePageTest, replacesWhatTheCodePageCannotHold) {
    EXPECT_EQ(Utf8ToWindows1252("a\u4E2Db\U0001F600c"), "a?b?c");
    // Broken UTF-8 does not stop the conversion.
    EXPECT_EQ(Utf8ToWindows1252(std::string("x\xC3") + "y"), "x?y");
}

TEST(CodePageTest, undefinedBytesDecodeAsQuestionMarks) {
    EXPECT_EQ(Windows1252ToUtf8(std::string("a\x81z")), "a?z");
}

TEST(CodePageTest, keepsAsciiAndEmbeddedNulls) {
    const std::string text("a\0b", 3);
    EXPECT_EQ(Utf8ToWindows1252(text), text);
    EXPECT_EQ(Windows1252ToUtf8(""), "");
}

} // namespace
