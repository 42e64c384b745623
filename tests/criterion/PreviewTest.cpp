// The preview's own rules: what Suggérer proposes for a field, and how a degree near 0 or 1 is
// counted (as the table will hold it).

#include "criterion/Preview.h"

#include <gtest/gtest.h>

#include <ostream>

namespace quorel::criterion {
namespace {

using Boxes = std::array<std::optional<double>, 4>;

struct SuggestCase {
    const char* name;
    int kind;
    std::vector<double> values; // ascending
    Boxes boxes;
};

void PrintTo(const SuggestCase& c, std::ostream* os) {
    *os << c.name;
}

class SuggestTest : public ::testing::TestWithParam<SuggestCase> {};

TEST_P(SuggestTest, fillsTheBoxesFromTheFieldsPercentiles) {
    FieldValues field;
    field.values = GetParam().values;
    field.nullCount = 3; // Nulls play no part
    const auto suggested = SuggestParameters(GetParam().kind, field);
    ASSERT_TRUE(suggested.has_value());
    EXPECT_EQ(*suggested, GetParam().boxes);
}

const std::vector<double> kTens = {0, 10, 20, 30, 40, 50, 60, 70, 80, 90, 100};
const std::vector<double> kCrowded = {1, 5, 5, 5, 5, 5, 5, 5, 5, 5, 5, 9};

INSTANTIATE_TEST_SUITE_P(
    Rule, SuggestTest,
    ::testing::Values(
        SuggestCase{"singletonTakesTheLowerMiddleValue", 1, {0, 10, 20, 30}, {10, {}, {}, {}}},
        SuggestCase{"triangle10_50_90", 2, kTens, {10, 50, 90, {}}},
        SuggestCase{"risingRamp25_75", 3, kTens, {25, 75, {}, {}}},
        SuggestCase{"fallingRamp25_75", 4, kTens, {25, 75, {}, {}}},
        SuggestCase{"trapezoid10_25_75_90", 5, kTens, {10, 25, 75, 90}},
        SuggestCase{"interpolatesBetweenValues", 5, {0, 10}, {1, 2.5, 7.5, 9}},
        // Many equal values: each slope's outer end moves out to the next value of the field.
        SuggestCase{"crowdedTrapezoidWidensToTheNextValues", 5, kCrowded, {1, 5, 5, 9}},
        SuggestCase{"crowdedFallingRampMovesItsLowEndUp", 4, kCrowded, {5, 9, {}, {}}},
        SuggestCase{"crowdedRisingRampMovesItsLowEndDown", 3, kCrowded, {1, 5, {}, {}}},
        // One value only: past it by 1.
        SuggestCase{"oneValueTriangle", 2, {3, 3, 3}, {2, 3, 4, {}}}),
    [](const auto& testInfo) { return std::string(testInfo.param.name); });

TEST(SuggestTest, nothingWithoutValuesOrShape) {
    FieldValues onlyNulls;
    onlyNulls.nullCount = 4;
    EXPECT_FALSE(SuggestParameters(5, onlyNulls).has_value());
    FieldValues some;
    some.values = {1, 2};
    EXPECT_FALSE(SuggestParameters(0, some).has_value());
}

// The rising ramp's formula at x = a gives a tiny degree (8.3e-17 for a = 0.7, b = 9.9) that
// an 11-decimal field stores as 0; at b it is exactly 1.
TEST(CountDegreesTest, countsDegreesAsTheFieldStoresThem) {
    FieldValues field;
    field.values = {0.7, 5.3, 9.9, 12};
    field.nullCount = 2;
    const MembershipFunction ramp(3, 0.7, 9.9, 1e14, 1e15);
    ASSERT_GT(ramp(0.7), 0.0);
    EXPECT_EQ(CountDegrees(ramp, field), (DegreeCounts{1, 1, 2, 2}));
    // The singleton gives Null values its Else branch: 1.
    const MembershipFunction singleton(1, 5.3, 1e14, 1e15, 1e16);
    EXPECT_EQ(CountDegrees(singleton, field), (DegreeCounts{3, 0, 3, 0}));
}

} // namespace
} // namespace quorel::criterion
