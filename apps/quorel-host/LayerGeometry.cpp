#include "apps/quorel-host/LayerGeometry.h"

#include <algorithm>
#include <numeric>

namespace quorel::host_app {
namespace {

constexpr std::size_t kBucketSize = 64;

// Spreads the low 16 bits of v over the even bits of the result.
std::uint32_t SpreadBits(std::uint32_t v) {
    v &= 0xFFFF;
    v = (v | (v << 8)) & 0x00FF00FF;
    v = (v | (v << 4)) & 0x0F0F0F0F;
    v = (v | (v << 2)) & 0x33333333;
    v = (v | (v << 1)) & 0x55555555;
    return v;
}

std::uint32_t Quantize(double value, double low, double span) {
    if (span <= 0) {
        return 0;
    }
    const double t = std::clamp((value - low) / span, 0.0, 1.0);
    return static_cast<std::uint32_t>(t * 65535.0);
}

} // namespace

Extent Union(const Extent& a, const Extent& b) {
    if (a.IsEmpty()) {
        return b;
    }
    if (b.IsEmpty()) {
        return a;
    }
    return {std::min(a.minX, b.minX), std::min(a.minY, b.minY), std::max(a.maxX, b.maxX),
            std::max(a.maxY, b.maxY)};
}

LayerGeometry LayerGeometry::FromShapes(const host::gdal::LayerShapes& shapes) {
    LayerGeometry g;
    std::size_t pointCount = 0;
    std::size_t ringCount = 0;
    for (const auto& feature : shapes.features) {
        ringCount += feature.rings.size();
        for (const auto& ring : feature.rings) {
            pointCount += ring.size();
        }
    }
    g.m_points.reserve(pointCount);
    g.m_ringStarts.reserve(ringCount + 1);
    g.m_featureRings.reserve(shapes.features.size() + 1);
    g.m_boxes.reserve(shapes.features.size());
    for (const auto& feature : shapes.features) {
        g.m_featureRings.push_back(g.m_ringStarts.size());
        Extent box{1, 1, 0, 0};
        for (const auto& ring : feature.rings) {
            g.m_ringStarts.push_back(g.m_points.size());
            for (const ShapePoint& p : ring) {
                box = Union(box, Extent{p.x, p.y, p.x, p.y});
                g.m_points.push_back(p);
            }
        }
        g.m_boxes.push_back(box);
        g.m_bounds = Union(g.m_bounds, box);
    }
    g.m_featureRings.push_back(g.m_ringStarts.size());
    g.m_ringStarts.push_back(g.m_points.size());

    // The index: features by the Z-order code of their box's centre, so that each bucket of
    // consecutive ones covers a compact patch of the map.
    const Extent& b = g.m_bounds;
    std::vector<std::pair<std::uint32_t, std::uint32_t>> keyed;
    keyed.reserve(g.m_boxes.size());
    for (std::size_t f = 0; f < g.m_boxes.size(); ++f) {
        const Extent& box = g.m_boxes[f];
        if (box.IsEmpty()) {
            continue;
        }
        const std::uint32_t qx = Quantize((box.minX + box.maxX) / 2, b.minX, b.maxX - b.minX);
        const std::uint32_t qy = Quantize((box.minY + box.maxY) / 2, b.minY, b.maxY - b.minY);
        keyed.emplace_back(SpreadBits(qx) | (SpreadBits(qy) << 1), static_cast<std::uint32_t>(f));
    }
    std::sort(keyed.begin(), keyed.end());
    g.m_order.reserve(keyed.size());
    for (const auto& entry : keyed) {
        g.m_order.push_back(entry.second);
    }
    for (std::size_t start = 0; start < g.m_order.size(); start += kBucketSize) {
        Extent box{1, 1, 0, 0};
        const std::size_t end = std::min(start + kBucketSize, g.m_order.size());
        for (std::size_t i = start; i < end; ++i) {
            box = Union(box, g.m_boxes[g.m_order[i]]);
        }
        g.m_bucketBoxes.push_back(box);
    }
    return g;
}

std::vector<std::uint32_t> LayerGeometry::Query(const Extent& extent) const {
    std::vector<std::uint32_t> found;
    if (!Intersects(extent, m_bounds)) {
        return found;
    }
    if (Contains(extent, m_bounds)) {
        found.reserve(m_order.size());
        for (std::size_t f = 0; f < m_boxes.size(); ++f) {
            if (!m_boxes[f].IsEmpty()) {
                found.push_back(static_cast<std::uint32_t>(f));
            }
        }
        return found;
    }
    for (std::size_t bucket = 0; bucket < m_bucketBoxes.size(); ++bucket) {
        if (!Intersects(extent, m_bucketBoxes[bucket])) {
            continue;
        }
        const std::size_t end = std::min((bucket + 1) * kBucketSize, m_order.size());
        for (std::size_t i = bucket * kBucketSize; i < end; ++i) {
            if (Intersects(extent, m_boxes[m_order[i]])) {
                found.push_back(m_order[i]);
            }
        }
    }
    std::sort(found.begin(), found.end());
    return found;
}

bool RingsContain(const LayerGeometry& geometry, std::size_t feature, double x, double y) {
    bool inside = false;
    for (std::size_t r = geometry.FirstRing(feature); r < geometry.EndRing(feature); ++r) {
        const auto ring = geometry.Ring(r);
        for (std::size_t i = 0, j = ring.size() - 1; i < ring.size(); j = i++) {
            const ShapePoint& a = ring[i];
            const ShapePoint& c = ring[j];
            if ((a.y > y) != (c.y > y) && x < (c.x - a.x) * (y - a.y) / (c.y - a.y) + a.x) {
                inside = !inside;
            }
        }
    }
    return inside;
}

std::optional<std::size_t> LayerGeometry::FeatureAt(double x, double y) const {
    const auto candidates = Query(Extent{x, y, x, y});
    for (auto it = candidates.rbegin(); it != candidates.rend(); ++it) {
        if (RingsContain(*this, *it, x, y)) {
            return *it;
        }
    }
    return std::nullopt;
}

} // namespace quorel::host_app
