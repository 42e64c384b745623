#include "apps/quorel-host/MapViewport.h"

#include <algorithm>
#include <cmath>

namespace quorel::host_app {

void MapViewport::SetSize(int width, int height) {
    m_width = std::max(width, 1);
    m_height = std::max(height, 1);
}

void MapViewport::Fit(const host::gdal::Extent& extent, const Margins& margins) {
    if (extent.IsEmpty()) {
        return;
    }
    const double areaWidth = std::max(m_width - margins.left - margins.right, 1.0);
    const double areaHeight = std::max(m_height - margins.top - margins.bottom, 1.0);
    // A single point or a line still gets a scale.
    const double width = std::max(extent.maxX - extent.minX, 1e-9);
    const double height = std::max(extent.maxY - extent.minY, 1e-9);
    m_unitsPerPixel = std::max(width / areaWidth, height / areaHeight);
    // The area's centre, in pixels from the view's centre, holds the extent's centre.
    const double shiftX = (margins.left - margins.right) / 2;
    const double shiftY = (margins.top - margins.bottom) / 2;
    m_centerX = (extent.minX + extent.maxX) / 2 - shiftX * m_unitsPerPixel;
    m_centerY = (extent.minY + extent.maxY) / 2 + shiftY * m_unitsPerPixel;
}

void MapViewport::ZoomAt(const ScreenPoint& anchor, double factor) {
    if (!IsSet() || !(factor > 0) || !std::isfinite(factor)) {
        return;
    }
    const host::gdal::ShapePoint fixed = ToMap(anchor);
    m_unitsPerPixel /= factor;
    m_centerX = fixed.x - (anchor.x - m_width / 2.0) * m_unitsPerPixel;
    m_centerY = fixed.y + (anchor.y - m_height / 2.0) * m_unitsPerPixel;
}

void MapViewport::Pan(double dx, double dy) {
    m_centerX -= dx * m_unitsPerPixel;
    m_centerY += dy * m_unitsPerPixel;
}

host::gdal::Extent MapViewport::VisibleExtent() const {
    if (!IsSet()) {
        return {1, 1, 0, 0};
    }
    const double halfWidth = m_width / 2.0 * m_unitsPerPixel;
    const double halfHeight = m_height / 2.0 * m_unitsPerPixel;
    return {m_centerX - halfWidth, m_centerY - halfHeight, m_centerX + halfWidth,
            m_centerY + halfHeight};
}

host::gdal::ShapePoint MapViewport::ToMap(const ScreenPoint& point) const {
    return {m_centerX + (point.x - m_width / 2.0) * m_unitsPerPixel,
            m_centerY - (point.y - m_height / 2.0) * m_unitsPerPixel};
}

ScreenPoint MapViewport::ToScreen(const host::gdal::ShapePoint& point) const {
    return {(point.x - m_centerX) / m_unitsPerPixel + m_width / 2.0,
            (m_centerY - point.y) / m_unitsPerPixel + m_height / 2.0};
}

} // namespace quorel::host_app
