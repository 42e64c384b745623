// The map's spatial index against a plain walk over every feature, and the odd-even rule of
// the feature found at a point.

#include "apps/quorel-host/LayerGeometry.h"

#include <gtest/gtest.h>

#include <random>

namespace quorel::host_app {
namespace {

using Ring = std::vector<ShapePoint>;

Ring Square(double x, double y, double side) {
    return {{x, y}, {x + side, y}, {x + side, y + side}, {x, y + side}, {x, y}};
}

TEST(LayerGeometryTest, theIndexFindsWhatAWalkOverEveryFeatureFinds) {
    // Squares of all sizes scattered in any order, some without geometry.
    std::mt19937_64 random(11);
    std::uniform_real_distribution<double> place(-1000, 1000);
    std::exponential_distribution<double> size(0.05);
    host::gdal::LayerShapes shapes;
    for (int i = 0; i < 5000; ++i) {
        host::gdal::FeatureShape feature;
        if (i % 50 != 7) {
            feature.rings.push_back(Square(place(random), place(random), size(random)));
        }
        shapes.features.push_back(std::move(feature));
    }
    const LayerGeometry geometry = LayerGeometry::FromShapes(shapes);
    ASSERT_EQ(geometry.FeatureCount(), 5000u);
    for (int q = 0; q < 200; ++q) {
        const double x = place(random);
        const double y = place(random);
        const double w = q % 10 == 0 ? 3000 : size(random) * 4;
        const Extent extent{x, y, x + w, y + w / 2};
        std::vector<std::uint32_t> walked;
        for (std::size_t f = 0; f < geometry.FeatureCount(); ++f) {
            if (Intersects(extent, geometry.FeatureBox(f))) {
                walked.push_back(static_cast<std::uint32_t>(f));
            }
        }
        ASSERT_EQ(geometry.Query(extent), walked) << "query " << q;
        std::optional<std::size_t> top;
        for (std::size_t f = 0; f < geometry.FeatureCount(); ++f) {
            if (RingsContain(geometry, f, x, y)) {
                top = f;
            }
        }
        ASSERT_EQ(geometry.FeatureAt(x, y), top) << "point " << q;
    }
}

TEST(LayerGeometryTest, aPointInAHoleFindsTheFeatureBelow) {
    host::gdal::LayerShapes shapes;
    shapes.features.push_back({{Square(0, 0, 100)}});
    shapes.features.push_back({{Square(10, 10, 80), Square(30, 30, 40)}}); // a ring with a hole
    const LayerGeometry geometry = LayerGeometry::FromShapes(shapes);
    EXPECT_EQ(geometry.FeatureAt(50, 50), 0u);
    EXPECT_EQ(geometry.FeatureAt(20, 50), 1u);
    EXPECT_EQ(geometry.FeatureAt(5, 50), 0u);
    EXPECT_EQ(geometry.FeatureAt(150, 50), std::nullopt);
}

} // namespace
} // namespace quorel::host_app
