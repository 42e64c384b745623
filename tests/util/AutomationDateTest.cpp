#include "util/AutomationDate.h"
#include "util/Error.h"

#include "tests/support/Thrown.h"

#include <gtest/gtest.h>

#include <limits>
#include <utility>

namespace quorel::util {
namespace {

using quorel::test::Thrown;

// (A moment of the clock's reaches this format in the error log's tests.)
TEST(AutomationDateTest, formatsLikeTheGeneralDateFormat) {
    for (const auto& [value, text] :
         {std::pair{0.0, "00:00:00"}, std::pair{0.5, "12:00:00"}, std::pair{1.0, "31/12/1899"},
          std::pair{45356.588298611, "05/03/2024 14:07:09"},
          std::pair{-1.25, "29/12/1899 06:00:00"}, std::pair{60.0, "28/02/1900"},
          std::pair{61.0, "01/03/1900"}, std::pair{2958465.0, "31/12/9999"},
          std::pair{-657434.0, "01/01/0100"}, std::pair{36891.99999999, "01/01/2001"}}) {
        EXPECT_EQ(FormatGeneralDate(value), text) << value;
    }
}

TEST(AutomationDateTest, outOfRangeIsAnOverflow) {
    for (const double value :
         {std::numeric_limits<double>::quiet_NaN(), std::numeric_limits<double>::infinity(),
          2958466.0, -657435.0, 1e300}) {
        EXPECT_EQ(Thrown([&] { FormatGeneralDate(value); }).Number(), error_number::kOverflow)
            << value;
    }
}

} // namespace
} // namespace quorel::util
