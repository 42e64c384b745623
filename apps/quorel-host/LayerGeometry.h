#pragma once

// A polygon layer's geometry as the map draws it: every ring's points in one flat array, a
// bounding box per feature, and a packed spatial index (features sorted along a Z-order curve,
// grouped in buckets with their joint box), so that a view of a few streets among a million
// parcels looks at the few buckets it meets. No Qt: the index is tested on its own.

#include "host/gdal/LayerShapes.h"

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <vector>

namespace quorel::host_app {

using host::gdal::Extent;
using host::gdal::ShapePoint;

inline bool Intersects(const Extent& a, const Extent& b) {
    return !a.IsEmpty() && !b.IsEmpty() && a.minX <= b.maxX && b.minX <= a.maxX &&
           a.minY <= b.maxY && b.minY <= a.maxY;
}

inline bool Contains(const Extent& outer, const Extent& inner) {
    return !outer.IsEmpty() && !inner.IsEmpty() && outer.minX <= inner.minX &&
           inner.maxX <= outer.maxX && outer.minY <= inner.minY && inner.maxY <= outer.maxY;
}

// The smallest extent holding both; an empty one counts as nothing.
Extent Union(const Extent& a, const Extent& b);

class LayerGeometry {
public:
    // Features keep the shapes' order, which is the layer's record order.
    static LayerGeometry FromShapes(const host::gdal::LayerShapes& shapes);

    std::size_t FeatureCount() const { return m_boxes.size(); }
    const Extent& Bounds() const { return m_bounds; }
    // Empty for a feature without geometry.
    const Extent& FeatureBox(std::size_t feature) const { return m_boxes[feature]; }
    std::size_t FirstRing(std::size_t feature) const { return m_featureRings[feature]; }
    std::size_t EndRing(std::size_t feature) const { return m_featureRings[feature + 1]; }
    std::span<const ShapePoint> Ring(std::size_t ring) const {
        return {m_points.data() + m_ringStarts[ring], m_ringStarts[ring + 1] - m_ringStarts[ring]};
    }

    // The features whose box meets the extent, in feature order (the order they are drawn).
    std::vector<std::uint32_t> Query(const Extent& extent) const;
    // The feature drawn on top at a point (the last one in feature order whose rings hold it,
    // odd-even), or nothing.
    std::optional<std::size_t> FeatureAt(double x, double y) const;

private:
    std::vector<ShapePoint> m_points;
    std::vector<std::size_t> m_ringStarts;   // one per ring, and the end
    std::vector<std::size_t> m_featureRings; // one per feature, and the end
    std::vector<Extent> m_boxes;
    Extent m_bounds{1, 1, 0, 0};
    std::vector<std::uint32_t> m_order; // features with a box, along the Z-order curve
    std::vector<Extent> m_bucketBoxes;  // one per kBucketSize entries of m_order
};

// Whether a point lies inside a feature's rings, with the odd-even rule a view fills them by.
bool RingsContain(const LayerGeometry& geometry, std::size_t feature, double x, double y);

} // namespace quorel::host_app
