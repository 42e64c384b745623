#include "apps/quorel-host/MapView.h"

#include "util/NumberText.h"

#include <QPainter>
#include <QPainterPath>

#include <algorithm>
#include <cmath>

namespace quorel::host_app {
namespace {

const QColor kBackground(250, 250, 247);
const QColor kOutline(90, 90, 90);
const QColor kNoValue(220, 220, 220);
// Light yellow to deep green: membership degrees read as "more suitable" when darker.
const QColor kLow(255, 255, 204);
const QColor kHigh(0, 104, 55);

QColor Blend(const QColor& a, const QColor& b, double t) {
    const auto mix = [t](int x, int y) { return static_cast<int>(std::lround(x + (y - x) * t)); };
    return {mix(a.red(), b.red()), mix(a.green(), b.green()), mix(a.blue(), b.blue())};
}

QString Number(double value) {
    return QString::fromStdString(util::FormatNumber(value, '.'));
}

} // namespace

MapView::MapView(QWidget* parent) : QWidget(parent) {
    setObjectName(QStringLiteral("mapView"));
    setMinimumSize(320, 240);
    setAutoFillBackground(false);
}

void MapView::SetLayers(std::vector<DrawnLayer> layers) {
    m_layers = std::move(layers);
    update();
}

void MapView::SetShading(std::optional<Shading> shading) {
    m_shading = std::move(shading);
    update();
}

QString MapView::LegendTitle() const {
    return m_shading ? m_shading->field : QString();
}

std::vector<LegendEntry> MapView::Legend() const {
    std::vector<LegendEntry> entries;
    if (!m_shading) {
        return entries;
    }
    const double step = (m_shading->high - m_shading->low) / kLegendClasses;
    for (int i = 0; i < kLegendClasses; ++i) {
        const double from = m_shading->low + step * i;
        const double to = i + 1 == kLegendClasses ? m_shading->high : from + step;
        entries.push_back({Number(from) + QStringLiteral(" – ") + Number(to),
                           Blend(kLow, kHigh, (i + 0.5) / kLegendClasses)});
    }
    return entries;
}

QColor MapView::ShadeOf(const std::optional<double>& value) const {
    if (!m_shading || !value) {
        return kNoValue;
    }
    const double span = m_shading->high - m_shading->low;
    double t = span > 0 ? (*value - m_shading->low) / span : 1.0;
    t = std::clamp(t, 0.0, 1.0);
    // Classed like the legend, so each colour on the map is one of the legend's.
    const int cls = std::min(kLegendClasses - 1, static_cast<int>(t * kLegendClasses));
    return Blend(kLow, kHigh, (cls + 0.5) / kLegendClasses);
}

void MapView::paintEvent(QPaintEvent*) {
    QPainter painter(this);
    painter.fillRect(rect(), kBackground);
    painter.setRenderHint(QPainter::Antialiasing);

    host::gdal::Extent extent{1, 1, 0, 0};
    for (const auto& layer : m_layers) {
        const auto& e = layer.shapes.extent;
        if (e.IsEmpty()) {
            continue;
        }
        extent =
            extent.IsEmpty()
                ? e
                : host::gdal::Extent{std::min(extent.minX, e.minX), std::min(extent.minY, e.minY),
                                     std::max(extent.maxX, e.maxX), std::max(extent.maxY, e.maxY)};
    }
    if (extent.IsEmpty()) {
        painter.setPen(QColor(120, 120, 120));
        painter.drawText(rect(), Qt::AlignCenter, tr("Aucune couche de polygones à dessiner"));
        return;
    }
    // Fit with a margin; the legend keeps the right-hand side when a field is shaded.
    const int legendWidth = m_shading ? 170 : 0;
    const QRectF area = QRectF(rect()).adjusted(16, 16, -16 - legendWidth, -16);
    const double width = std::max(extent.maxX - extent.minX, 1e-9);
    const double height = std::max(extent.maxY - extent.minY, 1e-9);
    const double scale = std::min(area.width() / width, area.height() / height);
    const double offsetX = area.left() + (area.width() - width * scale) / 2;
    const double offsetY = area.top() + (area.height() - height * scale) / 2;
    const auto toView = [&](const host::gdal::ShapePoint& p) {
        return QPointF(offsetX + (p.x - extent.minX) * scale,
                       offsetY + (extent.maxY - p.y) * scale);
    };

    for (const auto& layer : m_layers) {
        const bool shaded = m_shading && m_shading->layerName == layer.name;
        painter.setPen(QPen(kOutline, 0.6));
        for (std::size_t f = 0; f < layer.shapes.features.size(); ++f) {
            QPainterPath path;
            path.setFillRule(Qt::OddEvenFill);
            for (const auto& ring : layer.shapes.features[f].rings) {
                if (ring.empty()) {
                    continue;
                }
                path.moveTo(toView(ring.front()));
                for (std::size_t i = 1; i < ring.size(); ++i) {
                    path.lineTo(toView(ring[i]));
                }
                path.closeSubpath();
            }
            QColor fill = layer.fill;
            if (shaded) {
                fill = ShadeOf(f < m_shading->values.size() ? m_shading->values[f]
                                                            : std::optional<double>());
            }
            painter.fillPath(path, fill);
            painter.drawPath(path);
        }
    }
    if (m_shading) {
        PaintLegend(painter);
    }
}

void MapView::PaintLegend(QPainter& painter) const {
    const auto entries = Legend();
    const QFontMetrics metrics(font());
    const int line = metrics.height() + 6;
    const int boxHeight = 16 + line * (static_cast<int>(entries.size()) + 2);
    const QRect box(width() - 170, 16, 154, boxHeight);
    painter.setPen(QColor(180, 180, 180));
    painter.setBrush(QColor(255, 255, 255, 235));
    painter.drawRoundedRect(box, 4, 4);
    painter.setPen(Qt::black);
    QFont bold = font();
    bold.setBold(true);
    painter.setFont(bold);
    painter.drawText(box.adjusted(10, 8, -8, 0), Qt::AlignLeft | Qt::AlignTop,
                     metrics.elidedText(m_shading->field, Qt::ElideRight, box.width() - 18));
    painter.setFont(font());
    int y = box.top() + 8 + line + 2;
    const auto swatch = [&](const QColor& color, const QString& label) {
        painter.setPen(kOutline);
        painter.setBrush(color);
        painter.drawRect(box.left() + 10, y, 18, metrics.height() - 2);
        painter.setPen(Qt::black);
        painter.drawText(box.left() + 36, y + metrics.ascent() - 1, label);
        y += line;
    };
    for (auto it = entries.rbegin(); it != entries.rend(); ++it) {
        swatch(it->color, it->label);
    }
    swatch(kNoValue, tr("sans valeur"));
}

} // namespace quorel::host_app
