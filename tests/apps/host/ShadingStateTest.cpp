// The shading's state without widgets: the scale it takes from the values and the class each
// value and feature falls in.

#include "apps/quorel-host/ShadingState.h"
#include "host/shapefile/Application.h"

#include <gtest/gtest.h>

namespace quorel::host_app {
namespace {

using Values = std::vector<std::optional<double>>;

TEST(ShadingStateTest, degreesKeepTheirZeroToOneScaleOtherValuesTheirOwn) {
    for (const auto& [name, values, low, high] :
         {std::tuple{"degrees", Values{0.1, std::nullopt, 0.9}, 0.0, 1.0},
          std::tuple{"allEmpty", Values{std::nullopt, std::nullopt}, 0.0, 1.0},
          std::tuple{"none", Values{}, 0.0, 1.0},
          std::tuple{"ownScale", Values{3, -2, std::nullopt, 7.5}, -2.0, 7.5},
          std::tuple{"aboveOne", Values{0.5, 1.5}, 0.5, 1.5},
          std::tuple{"belowZero", Values{-0.25, 0.5}, -0.25, 0.5}}) {
        SCOPED_TRACE(name);
        const ShadingState shading(nullptr, "F", values);
        EXPECT_EQ(shading.Low(), low);
        EXPECT_EQ(shading.High(), high);
        const auto legend = shading.Legend();
        ASSERT_EQ(legend.size(), static_cast<std::size_t>(ShadingState::kClasses));
        EXPECT_EQ(legend.front().from, low);
        EXPECT_EQ(legend.back().to, high);
    }
}

TEST(ShadingStateTest, eachFeatureFallsInTheClassItsValueLiesIn) {
    const auto layer = std::make_shared<host::map::FeatureLayer>();
    const ShadingState shading(layer, "FZY_SLOPE",
                               {0.0, 0.19, 0.2, 0.5, 0.79, 0.8, 1.0, std::nullopt});
    EXPECT_EQ(shading.FeatureClasses(),
              (std::vector<std::uint8_t>{0, 0, 1, 2, 3, 4, 4, ShadingState::kNoClass}));
    // Beyond the scale: the end classes.
    EXPECT_EQ(shading.ClassOf(-3.0), 0);
    EXPECT_EQ(shading.ClassOf(7.0), ShadingState::kClasses - 1);
    // A field with one value: all of it in the top class.
    EXPECT_EQ(ShadingState(layer, "F", {7.0, 7.0}).FeatureClasses(),
              (std::vector<std::uint8_t>{4, 4}));
    // The shading belongs to the layer object, not to a name.
    const auto namesake = std::make_shared<host::map::FeatureLayer>();
    layer->SetName("parcels");
    namesake->SetName("parcels");
    EXPECT_TRUE(shading.Shades(*layer));
    EXPECT_FALSE(shading.Shades(*namesake));
}

} // namespace
} // namespace quorel::host_app
