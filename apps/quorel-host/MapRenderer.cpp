#include "apps/quorel-host/MapRenderer.h"

#include "apps/quorel-host/ShadingState.h"

#include <QPainter>
#include <QPainterPath>

#include <algorithm>
#include <cmath>

namespace quorel::host_app {
namespace {

// Below this width and height in pixels a feature is drawn as a block of pixels.
constexpr double kBlockSize = 2.0;
// From this width and height on a feature gets its outline.
constexpr double kOutlineSize = 5.0;
// Vertices nearer than this to the last one kept, in pixels, are skipped.
constexpr double kVertexStep = 0.7;
// Rings reaching farther than this outside the view are clipped to it first: the raster
// engine's fixed-point coordinates do not hold a deep zoom's.
constexpr double kClipReach = 4000.0;

// Keeps the part of a closed ring inside the rectangle (one side after the other). The pieces
// of border it adds lie outside the view, so neither the fill nor the outline shows them.
void ClipRing(std::vector<QPointF>& ring, const QRectF& rect) {
    std::vector<QPointF> out;
    const auto clipSide = [&](auto inside, auto cross) {
        out.clear();
        for (std::size_t i = 0; i < ring.size(); ++i) {
            const QPointF& a = ring[i];
            const QPointF& b = ring[(i + 1) % ring.size()];
            if (inside(a)) {
                out.push_back(a);
                if (!inside(b)) {
                    out.push_back(cross(a, b));
                }
            } else if (inside(b)) {
                out.push_back(cross(a, b));
            }
        }
        ring.swap(out);
    };
    const auto atX = [](const QPointF& a, const QPointF& b, double x) {
        return QPointF(x, a.y() + (b.y() - a.y()) * (x - a.x()) / (b.x() - a.x()));
    };
    const auto atY = [](const QPointF& a, const QPointF& b, double y) {
        return QPointF(a.x() + (b.x() - a.x()) * (y - a.y()) / (b.y() - a.y()), y);
    };
    clipSide([&](const QPointF& p) { return p.x() >= rect.left(); },
             [&](const QPointF& a, const QPointF& b) { return atX(a, b, rect.left()); });
    clipSide([&](const QPointF& p) { return p.x() <= rect.right(); },
             [&](const QPointF& a, const QPointF& b) { return atX(a, b, rect.right()); });
    clipSide([&](const QPointF& p) { return p.y() >= rect.top(); },
             [&](const QPointF& a, const QPointF& b) { return atY(a, b, rect.top()); });
    clipSide([&](const QPointF& p) { return p.y() <= rect.bottom(); },
             [&](const QPointF& a, const QPointF& b) { return atY(a, b, rect.bottom()); });
}

class Painter {
public:
    Painter(QImage& image, const MapViewport& viewport, QRgb outline)
        : m_bits(image.bits()), m_bytesPerLine(image.bytesPerLine()), m_width(image.width()),
          m_height(image.height()), m_view(viewport.VisibleExtent()),
          m_unitsPerPixel(viewport.UnitsPerPixel()),
          m_clip(-kClipReach / 2, -kClipReach / 2, m_width + kClipReach, m_height + kClipReach),
          m_painter(&image), m_outline(QColor::fromRgb(outline), 0) {
        m_painter.setRenderHint(QPainter::Antialiasing);
    }

    void Draw(const RenderLayer& layer) {
        const LayerGeometry& geometry = *layer.geometry;
        for (const std::uint32_t feature : geometry.Query(m_view)) {
            const QRectF screen = ScreenBox(geometry.FeatureBox(feature));
            const QRgb color = ColorOf(layer, feature);
            if (screen.width() < kBlockSize && screen.height() < kBlockSize) {
                FillBlock(screen, color);
            } else {
                DrawPolygon(geometry, feature, screen, color);
            }
        }
    }

    // Selected features: half-seen fill and a wide outline, blocks for the small ones.
    void DrawSelected(const RenderLayer& layer) {
        const LayerGeometry& geometry = *layer.geometry;
        const std::vector<std::uint8_t>& marks = *layer.selected;
        QColor fill = QColor::fromRgb(kSelectionColor);
        fill.setAlpha(110);
        m_painter.setBrush(fill);
        m_painter.setPen(QPen(QColor::fromRgb(kSelectionColor), 2));
        for (const std::uint32_t feature : geometry.Query(m_view)) {
            if (feature >= marks.size() || marks[feature] == 0) {
                continue;
            }
            const QRectF screen = ScreenBox(geometry.FeatureBox(feature));
            if (screen.width() < kOutlineSize && screen.height() < kOutlineSize) {
                FillBlock(screen, kSelectionColor);
            } else {
                DrawRings(geometry, feature, screen);
            }
        }
        m_brushSet = false;
        m_penSet = false;
    }

private:
    QRectF ScreenBox(const Extent& box) const {
        return {QPointF((box.minX - m_view.minX) / m_unitsPerPixel,
                        (m_view.maxY - box.maxY) / m_unitsPerPixel),
                QPointF((box.maxX - m_view.minX) / m_unitsPerPixel,
                        (m_view.maxY - box.minY) / m_unitsPerPixel)};
    }

    static QRgb ColorOf(const RenderLayer& layer, std::size_t feature) {
        if (layer.classes == nullptr) {
            return layer.fill;
        }
        const std::uint8_t cls =
            feature < layer.classes->size() ? (*layer.classes)[feature] : ShadingState::kNoClass;
        return cls < layer.classColors.size() ? layer.classColors[cls] : layer.noValue;
    }

    // The pixels whose centres the box covers, at least the one under its centre; neighbours
    // tile without gaps.
    void FillBlock(const QRectF& screen, QRgb color) {
        const int x0 = static_cast<int>(std::lround(screen.left()));
        const int y0 = static_cast<int>(std::lround(screen.top()));
        const int x1 = std::max(x0 + 1, static_cast<int>(std::lround(screen.right())));
        const int y1 = std::max(y0 + 1, static_cast<int>(std::lround(screen.bottom())));
        const QRgb pixel = 0xFF000000u | color;
        for (int y = std::max(y0, 0); y < std::min(y1, m_height); ++y) {
            auto* line =
                reinterpret_cast<QRgb*>(m_bits + static_cast<qsizetype>(y) * m_bytesPerLine);
            for (int x = std::max(x0, 0); x < std::min(x1, m_width); ++x) {
                line[x] = pixel;
            }
        }
    }

    // The ring's points on the screen, without those less than a step from the last kept.
    void ScreenRing(std::span<const ShapePoint> ring, bool clip) {
        m_ring.clear();
        for (const ShapePoint& p : ring) {
            const QPointF point((p.x - m_view.minX) / m_unitsPerPixel,
                                (m_view.maxY - p.y) / m_unitsPerPixel);
            if (!m_ring.empty() && std::abs(point.x() - m_ring.back().x()) < kVertexStep &&
                std::abs(point.y() - m_ring.back().y()) < kVertexStep) {
                continue;
            }
            m_ring.push_back(point);
        }
        if (clip) {
            ClipRing(m_ring, m_clip);
        }
    }

    void DrawPolygon(const LayerGeometry& geometry, std::size_t feature, const QRectF& screen,
                     QRgb color) {
        if (color != m_brushColor || !m_brushSet) {
            m_painter.setBrush(QColor::fromRgb(color));
            m_brushColor = color;
            m_brushSet = true;
        }
        const bool outlined = screen.width() >= kOutlineSize && screen.height() >= kOutlineSize;
        if (outlined != m_outlined || !m_penSet) {
            m_painter.setPen(outlined ? m_outline : QPen(Qt::NoPen));
            m_outlined = outlined;
            m_penSet = true;
        }
        if (!DrawRings(geometry, feature, screen)) {
            FillBlock(screen, color); // thinned to nothing: a sliver
        }
    }

    // With the painter's brush and pen; false when the rings thin to nothing.
    bool DrawRings(const LayerGeometry& geometry, std::size_t feature, const QRectF& screen) {
        const bool clip = !m_clip.contains(screen);
        const std::size_t first = geometry.FirstRing(feature);
        const std::size_t end = geometry.EndRing(feature);
        if (end - first == 1) {
            ScreenRing(geometry.Ring(first), clip);
            if (m_ring.size() < 3) {
                return false;
            }
            m_painter.drawPolygon(m_ring.data(), static_cast<int>(m_ring.size()), Qt::OddEvenFill);
            return true;
        }
        QPainterPath path;
        path.setFillRule(Qt::OddEvenFill);
        for (std::size_t r = first; r < end; ++r) {
            ScreenRing(geometry.Ring(r), clip);
            if (m_ring.size() >= 3) {
                path.addPolygon(QPolygonF(QList<QPointF>(m_ring.begin(), m_ring.end())));
                path.closeSubpath();
            }
        }
        m_painter.drawPath(path);
        return true;
    }

    uchar* m_bits;
    qsizetype m_bytesPerLine;
    int m_width;
    int m_height;
    Extent m_view;
    double m_unitsPerPixel;
    QRectF m_clip;
    QPainter m_painter;
    QPen m_outline;
    std::vector<QPointF> m_ring;
    QRgb m_brushColor = 0;
    bool m_brushSet = false;
    bool m_outlined = false;
    bool m_penSet = false;
};

} // namespace

void RenderMap(QImage& image, const MapViewport& viewport, const std::vector<RenderLayer>& layers,
               QRgb outline) {
    if (!viewport.IsSet() || image.isNull()) {
        return;
    }
    Painter painter(image, viewport, outline);
    for (const RenderLayer& layer : layers) {
        if (layer.geometry != nullptr) {
            painter.Draw(layer);
        }
    }
    for (const RenderLayer& layer : layers) {
        if (layer.geometry != nullptr && layer.selected != nullptr) {
            painter.DrawSelected(layer);
        }
    }
}

} // namespace quorel::host_app
