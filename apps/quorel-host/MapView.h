#pragma once

// The map: the polygon layers of the focus map drawn into a picture kept between paints, one
// numeric field of one layer shaded from light to dark with a legend. The wheel zooms about the
// cursor, a drag pans, and with the identify tool a click asks what lies there.

#include "apps/quorel-host/LayerGeometry.h"
#include "apps/quorel-host/MapViewport.h"
#include "apps/quorel-host/ShadingState.h"
#include "host/api/Host.h"

#include <QColor>
#include <QImage>
#include <QString>
#include <QWidget>

#include <functional>
#include <memory>
#include <optional>
#include <vector>

class QToolBar;

namespace quorel::host_app {

struct DrawnLayer {
    std::shared_ptr<host::IFeatureLayer> layer;
    std::shared_ptr<const LayerGeometry> geometry;
    QColor fill;
    bool visible = true;
    // A mark per feature (position in the geometry), non-zero where selected; null for none.
    std::shared_ptr<const std::vector<std::uint8_t>> selected{};
};

struct LegendEntry {
    QString label;
    QColor color;
};

struct FeatureHit {
    std::shared_ptr<host::IFeatureLayer> layer;
    std::size_t feature = 0;
};

class MapView final : public QWidget {
public:
    enum class Tool { Pan, Identify };
    using IdentifyHandler = std::function<void(const ShapePoint& at)>;

    explicit MapView(QWidget* parent = nullptr);

    // Layers bottom to top (the first is drawn first), hidden ones included: they count in the
    // full extent. Until the user moves the map, the view shows the full extent.
    void SetLayers(std::vector<DrawnLayer> layers);
    const std::vector<DrawnLayer>& Layers() const { return m_layers; }
    void SetShading(std::optional<ShadingState> shading);
    const std::optional<ShadingState>& CurrentShading() const { return m_shading; }

    // Shows every layer, and keeps doing so as layers come and go until the user moves the map.
    void ZoomToFullExtent();
    void ZoomToExtent(const Extent& extent);
    // Zooms about the view's centre (a factor above 1 zooms in).
    void ZoomBy(double factor);
    Extent FullExtent() const;
    Extent VisibleExtent() const { return m_viewport.VisibleExtent(); }
    const MapViewport& Viewport() const { return m_viewport; }

    void SetTool(Tool tool);
    Tool CurrentTool() const { return m_tool; }
    void SetIdentifyHandler(IdentifyHandler handler) { m_identify = std::move(handler); }
    // The feature drawn on top at a map point, among the visible layers.
    std::optional<FeatureHit> FeatureAt(const ShapePoint& at) const;
    // Outlines a feature (the one identified); nothing clears it.
    void SetHighlight(std::optional<FeatureHit> hit);

    // The legend as shown: its title (the field) and one entry per class, low to high.
    QString LegendTitle() const;
    std::vector<LegendEntry> Legend() const;

    QSize sizeHint() const override { return {640, 480}; }

protected:
    void paintEvent(QPaintEvent* event) override;
    void resizeEvent(QResizeEvent* event) override;
    void wheelEvent(QWheelEvent* event) override;
    void mousePressEvent(QMouseEvent* event) override;
    void mouseMoveEvent(QMouseEvent* event) override;
    void mouseReleaseEvent(QMouseEvent* event) override;

private:
    Margins FitMargins() const;
    void FitIfFollowing();
    void Invalidate();
    void RenderPicture();
    void PaintHighlight(class QPainter& painter) const;
    void PaintLegend(class QPainter& painter) const;
    void UpdateCursor();

    std::vector<DrawnLayer> m_layers;
    std::optional<ShadingState> m_shading;
    std::optional<FeatureHit> m_highlight;
    MapViewport m_viewport;
    bool m_following = true; // shows the full extent until the user moves the map
    QImage m_picture;
    bool m_pictureValid = false;
    QPointF m_pictureShift; // how far a drag going on moved the picture since it was drawn
    Tool m_tool = Tool::Pan;
    std::optional<QPointF> m_pressAt;
    QPointF m_lastDragAt;
    bool m_dragging = false;
    IdentifyHandler m_identify;
};

// Zoom in, zoom out, full extent, pan and identify, on a toolbar; the last two are exclusive.
void AddMapTools(QToolBar& bar, MapView& view);

} // namespace quorel::host_app
