#include "util/StringFunctions.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <locale.h>
#include <optional>
#include <string>

namespace {

using namespace quorel::util;

class DecimalMarkTest : public ::testing::Test {
protected:
    void TearDown() override { SetDecimalSeparator(std::nullopt); }
};

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
