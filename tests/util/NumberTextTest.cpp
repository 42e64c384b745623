#include "util/NumberText.h"

#include <gtest/gtest.h>

#include <ostream>

#include <cmath>
#include <limits>

namespace {

using quorel::util::FormatNumber;

struct NumberCase {
    double value;
    const char* text;
};

void PrintTo(const NumberCase& c, std::ostream* os) {
    *os << c.text;
}

class FormatNumberTest : public ::testing::TestWithParam<NumberCase> {};

TEST_P(FormatNumberTest, printsShortestFifteenDigitForm) {
    EXPECT_EQ(FormatNumber(GetParam().value), GetParam().text);
}

INSTANTIATE_TEST_SUITE_P(
    Boundaries, FormatNumberTest,
    ::testing::Values(
        NumberCase{0.0, "0"}, NumberCase{-0.0, "0"}, NumberCase{1.0, "1"}, NumberCase{-5.0, "-5"},
        NumberCase{2.5, "2.5"}, NumberCase{0.1 + 0.2, "0.3"}, NumberCase{1e14, "100000000000000"},
        NumberCase{1e15, "1E+15"}, NumberCase{-1e15, "-1E+15"}, NumberCase{1e16, "1E+16"},
        NumberCase{-1e16, "-1E+16"}, NumberCase{999999999999999.0, "999999999999999"},
        // Rounding to 15 digits carries into the exponent.
        NumberCase{999999999999999.9, "1E+15"},
        NumberCase{1234567890123456.0, "1.23456789012346E+15"},
        NumberCase{123456789.123456789, "123456789.123457"}, NumberCase{0.0001, "0.0001"},
        NumberCase{0.00001, "1E-05"}, NumberCase{-0.000012345, "-1.2345E-05"},
        NumberCase{1.5e-300, "1.5E-300"}, NumberCase{1e100, "1E+100"}, NumberCase{-9999.0, "-9999"},
        NumberCase{1.0 / 3.0, "0.333333333333333"}, NumberCase{2.0 / 3.0, "0.666666666666667"}));

TEST(FormatNumberTest, usesTheGivenDecimalMark) {
    EXPECT_EQ(FormatNumber(2.5, ','), "2,5");
    EXPECT_EQ(FormatNumber(-0.25, ','), "-0,25");
    EXPECT_EQ(FormatNumber(1.5e20, ','), "1,5E+20");
    EXPECT_EQ(FormatNumber(12.0, ','), "12");
}

TEST(FormatNumberTest, neverPrintsGrouping) {
    EXPECT_EQ(FormatNumber(1234567.0), "1234567");
}

} // namespace
