#pragma once

// The map: the polygon layers of the focus map drawn with QPainter, fitted to their extent, one
// numeric field of one layer shaded from light to dark with a legend.

#include "host/gdal/LayerShapes.h"

#include <QColor>
#include <QString>
#include <QWidget>

#include <optional>
#include <vector>

namespace quorel::host_app {

struct DrawnLayer {
    QString name;
    host::gdal::LayerShapes shapes;
    QColor fill;
};

struct Shading {
    QString layerName;
    QString field;
    double low = 0;
    double high = 1;
    std::vector<std::optional<double>> values; // one per feature of the shaded layer
};

struct LegendEntry {
    QString label;
    QColor color;
};

class MapView final : public QWidget {
public:
    explicit MapView(QWidget* parent = nullptr);

    // Layers bottom to top (the first is drawn first); the view fits their joint extent.
    void SetLayers(std::vector<DrawnLayer> layers);
    void SetShading(std::optional<Shading> shading);

    const std::vector<DrawnLayer>& Layers() const { return m_layers; }
    const std::optional<Shading>& CurrentShading() const { return m_shading; }
    // The legend as shown: its title (the field) and one entry per class, low to high.
    QString LegendTitle() const;
    std::vector<LegendEntry> Legend() const;
    // The colour of a value on the shading's scale; the no-value colour for an empty one.
    QColor ShadeOf(const std::optional<double>& value) const;

    QSize sizeHint() const override { return {640, 480}; }

protected:
    void paintEvent(QPaintEvent* event) override;

private:
    void PaintLegend(class QPainter& painter) const;

    std::vector<DrawnLayer> m_layers;
    std::optional<Shading> m_shading;
};

// The class count of a legend.
inline constexpr int kLegendClasses = 5;

} // namespace quorel::host_app
