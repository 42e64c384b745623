#include "util/AutomationDate.h"
#include "util/Error.h"

#include "tests/support/Thrown.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>

namespace quorel::util {
namespace {

using quorel::test::Thrown;

struct DateCase {
    double value;
    const char* text;
};

void PrintTo(const DateCase& c, std::ostream* os) {
    *os << c.text;
}

class GeneralDateTest : public testing::TestWithParam<DateCase> {};

TEST_P(GeneralDateTest, formatsLikeTheGeneralDateFormat) {
    EXPECT_EQ(FormatGeneralDate(GetParam().value), GetParam().text);
}

INSTANTIATE_TEST_SUITE_P(
    Dates, GeneralDateTest,
    testing::Values(DateCase{0.0, "00:00:00"}, DateCase{0.5, "12:00:00"},
                    DateCase{1.0, "31/12/1899"}, DateCase{45356.588298611, "05/03/2024 14:07:09"},
                    DateCase{-1.25, "29/12/1899 06:00:00"}, DateCase{60.0, "28/02/1900"},
                    DateCase{61.0, "01/03/1900"}, DateCase{2958465.0, "31/12/9999"},
                    DateCase{-657434.0, "01/01/0100"}, DateCase{36891.99999999, "01/01/2001"}));

class BadDateTest : public testing::TestWithParam<double> {};

TEST_P(BadDateTest, outOfRangeIsAnOverflow) {
    EXPECT_EQ(Thrown([&] { FormatGeneralDate(GetParam()); }).Number(), error_number::kOverflow);
}

INSTANTIATE_TEST_SUITE_P(Dates, BadDateTest,
                         testing::Values(std::numeric_limits<double>::quiet_NaN(),
                                         std::numeric_limits<double>::infinity(), 2958466.0,
                                         -657435.0, 1e300));

TEST(AutomationDateTest, localMomentRoundTrips) {
    std::tm local{};
    local.tm_year = 2024 - 1900;
    local.tm_mon = 2;
    local.tm_mday = 5;
    local.tm_hour = 14;
    local.tm_min = 7;
    local.tm_sec = 9;
    local.tm_isdst = -1;
    EXPECT_EQ(FormatGeneralDate(ToAutomationDate(std::mktime(&local))), "05/03/2024 14:07:09");
}

} // namespace
} // namespace quorel::util
