#pragma once

// Where the map looks: the map point at the centre of the view, the map units one pixel spans
// and the view's size in pixels. Screen y grows downwards, map y upwards. Kept by its centre,
// so that resizing the window keeps the place and the scale. No Qt.

#include "host/gdal/LayerShapes.h"

namespace quorel::host_app {

struct ScreenPoint {
    double x = 0;
    double y = 0;
};

// Pixels kept free on each side when an extent is fitted (the legend's room on the right).
struct Margins {
    double left = 0;
    double top = 0;
    double right = 0;
    double bottom = 0;
};

class MapViewport {
public:
    void SetSize(int width, int height);
    int Width() const { return m_width; }
    int Height() const { return m_height; }
    // Whether an extent was ever fitted: before that the view shows nothing.
    bool IsSet() const { return m_unitsPerPixel > 0; }

    // Shows the whole extent in the part of the view left inside the margins, centred.
    void Fit(const host::gdal::Extent& extent, const Margins& margins);
    // Multiplies the scale by factor (above 1 zooms in), keeping the map point under the
    // screen point where it is.
    void ZoomAt(const ScreenPoint& anchor, double factor);
    // Moves the map's picture by (dx, dy) pixels, as a drag does.
    void Pan(double dx, double dy);

    double UnitsPerPixel() const { return m_unitsPerPixel; }
    host::gdal::Extent VisibleExtent() const;
    host::gdal::ShapePoint ToMap(const ScreenPoint& point) const;
    ScreenPoint ToScreen(const host::gdal::ShapePoint& point) const;

private:
    double m_centerX = 0;
    double m_centerY = 0;
    double m_unitsPerPixel = 0;
    int m_width = 0;
    int m_height = 0;
};

} // namespace quorel::host_app
