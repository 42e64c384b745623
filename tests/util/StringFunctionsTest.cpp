#include "util/StringFunctions.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <locale.h>
#include <optional>
#include <ostream>
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

struct KeyCase {
    const char* text;
    bool acceptEnd;
    const char* defaultValue;
    const char* expected;
};

void PrintTo(const KeyCase& c, std::ostream* os) {
    *os << c.text << (c.acceptEnd ? " end" : "");
}

class ValueAfterKeyTest : public ::testing::TestWithParam<KeyCase> {};

TEST_P(ValueAfterKeyTest, readsTheValueOfTheTooltipKey) {
    const auto& c = GetParam();
    EXPECT_EQ(ValueAfterKey(c.text, "tt=", ",", c.acceptEnd, c.defaultValue), c.expected);
}

INSTANTIATE_TEST_SUITE_P(
    Cases, ValueAfterKeyTest,
    ::testing::Values(KeyCase{"tt=13", true, "", "13"}, KeyCase{"5,tt=13,x", true, "", "13"},
                      KeyCase{"5,tt=13,x", false, "", "13"}, KeyCase{"tt=13", false, "", ""},
                      KeyCase{"tt=13", false, "7", "7"}, KeyCase{"12", true, "7", "7"},
                      KeyCase{"tt= 13 ,9", true, "", "13"}, KeyCase{"TT=13", true, "", ""},
                      KeyCase{"tt=,9", true, "4", "4"}));

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

struct LocaleMark {
    const char* locale;
    char markWhenInstalled; // as glibc's locale data gives it
};

void PrintTo(const LocaleMark& c, std::ostream* os) {
    *os << c.locale;
}

// The mark comes from the C library only: a locale that is not installed runs as the C locale.
class LocaleDecimalMarkTest : public ::testing::TestWithParam<LocaleMark> {
protected:
    void SetUp() override {
        if (const char* all = std::getenv("LC_ALL")) {
            m_saved = all;
        }
    }
    void TearDown() override {
        if (m_saved) {
            setenv("LC_ALL", m_saved->c_str(), 1);
        } else {
            unsetenv("LC_ALL");
        }
        SetDecimalSeparator(std::nullopt);
    }
    std::optional<std::string> m_saved;
};

TEST_P(LocaleDecimalMarkTest, followsTheCLibraryOrTheCLocale) {
    const LocaleMark& c = GetParam();
    locale_t installed = newlocale(LC_NUMERIC_MASK, c.locale, nullptr);
    if (installed != nullptr) {
        freelocale(installed);
    }
    setenv("LC_ALL", c.locale, 1);
    SetDecimalSeparator(std::nullopt);
    EXPECT_EQ(DecimalSeparator(), installed != nullptr ? c.markWhenInstalled : '.');
}

INSTANTIATE_TEST_SUITE_P(Locales, LocaleDecimalMarkTest,
                         ::testing::Values(LocaleMark{"es_MX.UTF-8", '.'},
                                           LocaleMark{"fr_FR.UTF-8", ','},
                                           LocaleMark{"de_DE@euro", ','}, LocaleMark{"C", '.'}));

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
