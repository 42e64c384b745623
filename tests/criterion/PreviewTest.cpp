// The preview's own rules: what Suggérer proposes for a field, and how a degree near 0 or 1 is
// counted (as the table will hold it).

#include "criterion/Preview.h"

#include <gtest/gtest.h>

namespace quorel::criterion {
namespace {

using Boxes = std::array<std::optional<double>, 4>;

const std::vector<double> kTens = {0, 10, 20, 30, 40, 50, 60, 70, 80, 90, 100};
const std::vector<double> kCrowded = {1, 5, 5, 5, 5, 5, 5, 5, 5, 5, 5, 9};

TEST(SuggestTest, fillsTheBoxesFromTheFieldsPercentiles) {
    using Values = std::vector<double>; // ascending
    for (const auto& [name, kind, values, boxes] :
         {std::tuple{"singletonTakesTheLowerMiddleValue", 1, Values{0, 10, 20, 30},
                     Boxes{10, {}, {}, {}}},
          std::tuple{"triangle10_50_90", 2, kTens, Boxes{10, 50, 90, {}}},
          std::tuple{"risingRamp25_75", 3, kTens, Boxes{25, 75, {}, {}}},
          std::tuple{"fallingRamp25_75", 4, kTens, Boxes{25, 75, {}, {}}},
          std::tuple{"trapezoid10_25_75_90", 5, kTens, Boxes{10, 25, 75, 90}},
          std::tuple{"interpolatesBetweenValues", 5, Values{0, 10}, Boxes{1, 2.5, 7.5, 9}},
          // Many equal values: each slope's outer end moves out to the next value of the field.
          std::tuple{"crowdedTrapezoidWidensToTheNextValues", 5, kCrowded, Boxes{1, 5, 5, 9}},
          std::tuple{"crowdedFallingRampMovesItsLowEndUp", 4, kCrowded, Boxes{5, 9, {}, {}}},
          std::tuple{"crowdedRisingRampMovesItsLowEndDown", 3, kCrowded, Boxes{1, 5, {}, {}}},
          // One value only: past it by 1.
          std::tuple{"oneValueTriangle", 2, Values{3, 3, 3}, Boxes{2, 3, 4, {}}}}) {
        FieldValues field;
        field.values = values;
        field.nullCount = 3; // Nulls play no part
        EXPECT_EQ(SuggestParameters(kind, field), std::optional(boxes)) << name;
    }
}

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
