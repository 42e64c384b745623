#include "util/NumberText.h"

#include <gtest/gtest.h>

#include <utility>

namespace {

using quorel::util::FormatNumber;

TEST(FormatNumberTest, printsShortestFifteenDigitForm) {
    for (const auto& [value, text] :
         {std::pair{0.0, "0"}, std::pair{-0.0, "0"}, std::pair{1.0, "1"}, std::pair{-5.0, "-5"},
          std::pair{2.5, "2.5"}, std::pair{0.1 + 0.2, "0.3"}, std::pair{1e14, "100000000000000"},
          std::pair{1e15, "1E+15"}, std::pair{-1e15, "-1E+15"}, std::pair{1e16, "1E+16"},
          std::pair{-1e16, "-1E+16"}, std::pair{999999999999999.0, "999999999999999"},
          // Rounding to 15 digits carries into the exponent.
          std::pair{999999999999999.9, "1E+15"},
          std::pair{1234567890123456.0, "1.23456789012346E+15"},
          std::pair{123456789.123456789, "123456789.123457"}, std::pair{0.0001, "0.0001"},
          std::pair{0.00001, "1E-05"}, std::pair{-0.000012345, "-1.2345E-05"},
          std::pair{1.5e-300, "1.5E-300"}, std::pair{1e100, "1E+100"}, std::pair{-9999.0, "-9999"},
          std::pair{1.0 / 3.0, "0.333333333333333"}, std::pair{2.0 / 3.0, "0.666666666666667"},
          // No grouping.
          std::pair{1234567.0, "1234567"}}) {
        EXPECT_EQ(FormatNumber(value), text);
    }
}

TEST(FormatNumberTest, usesTheGivenDecimalMark) {
    EXPECT_EQ(FormatNumber(2.5, ','), "2,5");
    EXPECT_EQ(FormatNumber(-0.25, ','), "-0,25");
    EXPECT_EQ(FormatNumber(1.5e20, ','), "1,5E+20");
    EXPECT_EQ(FormatNumber(12.0, ','), "12");
}

} // namespace
