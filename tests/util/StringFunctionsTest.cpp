#include "util/StringFunctions.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <locale.h>
#include <optional>
#include <string>

namespace {

using namespace quorel::util;

TEST(TrimLineEndsTest, removesBlanksAndLineEndsAsDocumented) {
    EXPECT_EQ(TrimLineEnds(" \r\n12\r\n"), "12");
    EXPECT_EQ(TrimLineEnds("12 \r\n"), "12 ");
    EXPECT_EQ(TrimLineEnds("  "), "");
    EXPECT_EQ(TrimLineEnds("\n \r"), "");
    EXPECT_EQ(TrimLineEnds("a b"), "a b");
}

TEST(ValueAfterKeyTest, readsTheValueOfTheTooltipKey) {
    struct Case {
        const char* text;
        bool acceptEnd;
        const char* defaultValue;
        const char* expected;
    };
    for (const Case& c : {Case{"tt=13", true, "", "13"}, Case{"5,tt=13,x", true, "", "13"},
                          Case{"5,tt=13,x", false, "", "13"}, Case{"tt=13", false, "", ""},
                          Case{"tt=13", false, "7", "7"}, Case{"12", true, "7", "7"},
                          Case{"tt= 13 ,9", true, "", "13"}, Case{"TT=13", true, "", ""},
                          Case{"tt=,9", true, "4", "4"}}) {
        EXPECT_EQ(ValueAfterKey(c.text, "tt=", ",", c.acceptEnd, c.defaultValue), c.expected)
            << c.text << (c.acceptEnd ? " end" : "");
    }
}

class DecimalMarkTest : public ::testing::Test {
protected:
    void TearDown() override { SetDecimalSeparator(std::nullopt); }
};

TEST_F(DecimalMarkTest, localizesToTheUsersMark) {
    SetDecimalSeparator(',');
    EXPECT_EQ(DecimalSeparator(), ',');
    EXPECT_EQ(OtherDecimalMark(), '.');
    EXPECT_EQ(LocalizeDecimal(std::string("2.5")), "2,5");
    EXPECT_EQ(LocalizeDecimal(std::string(" 1.234,5 ")), "1,234,5");
    SetDecimalSeparator('.');
    EXPECT_EQ(OtherDecimalMark(), ',');
    EXPECT_EQ(LocalizeDecimal(std::string("2,5")), "2.5");
    EXPECT_EQ(LocalizeDecimal(std::string("2.5")), "2.5");
    EXPECT_EQ(LocalizeDecimal(std::nullopt), "");
    EXPECT_EQ(LocalizeDecimal(std::string("   ")), "");
}

// The mark comes from the C library only: a locale that is not installed runs as the C locale.
TEST_F(DecimalMarkTest, followsTheCLibraryOrTheCLocale) {
    const char* all = std::getenv("LC_ALL");
    const std::optional<std::string> saved = all ? std::optional<std::string>(all) : std::nullopt;
    // With the mark glibc's locale data gives each.
    for (const auto& [locale, mark] : {std::pair{"es_MX.UTF-8", '.'}, std::pair{"fr_FR.UTF-8", ','},
                                       std::pair{"de_DE@euro", ','}, std::pair{"C", '.'}}) {
        locale_t installed = newlocale(LC_NUMERIC_MASK, locale, nullptr);
        if (installed != nullptr) {
            freelocale(installed);
        }
        setenv("LC_ALL", locale, 1);
        SetDecimalSeparator(std::nullopt);
        EXPECT_EQ(DecimalSeparator(), installed != nullptr ? mark : '.') << locale;
    }
    if (saved) {
        setenv("LC_ALL", saved->c_str(), 1);
    } else {
        unsetenv("LC_ALL");
    }
}

TEST(ParseDecimalTest, readsPlainNumbersOnly) {
    EXPECT_EQ(ParseDecimal("2.5", '.'), 2.5);
    EXPECT_EQ(ParseDecimal(" -2,5 ", ','), -2.5);
    EXPECT_EQ(ParseDecimal("1E+15", '.'), 1e15);
    EXPECT_EQ(ParseDecimal(".5", '.'), 0.5);
    EXPECT_EQ(ParseDecimal("5.", '.'), 5.0);
    EXPECT_EQ(ParseDecimal("+3", '.'), 3.0);
    EXPECT_FALSE(ParseDecimal("2,5", '.'));
    EXPECT_FALSE(ParseDecimal("1.2.3", '.'));
    EXPECT_FALSE(ParseDecimal("abc", '.'));
    EXPECT_FALSE(ParseDecimal("", '.'));
    EXPECT_FALSE(ParseDecimal(".", '.'));
    EXPECT_FALSE(ParseDecimal("1e", '.'));
    EXPECT_FALSE(ParseDecimal("1e999", '.'));
    EXPECT_FALSE(ParseDecimal("--1", '.'));
}

} // namespace
