#include "apps/quorel-host/MapView.h"

#include "apps/quorel-host/MapRenderer.h"
#include "util/NumberText.h"

#include <QAction>
#include <QActionGroup>
#include <QApplication>
#include <QMouseEvent>
#include <QPainter>
#include <QPainterPath>
#include <QToolBar>
#include <QWheelEvent>

#include <algorithm>
#include <array>
#include <cmath>

namespace quorel::host_app {
namespace {

const QColor kBackground(250, 250, 247);
const QColor kOutline(90, 90, 90);
const QColor kNoValue(220, 220, 220);
const QColor kHighlight(220, 30, 30);
// Light yellow to deep green: membership degrees read as "more suitable" when darker.
const QColor kLow(255, 255, 204);
const QColor kHigh(0, 104, 55);
// The zoom of one notch of the wheel, and of the zoom buttons.
constexpr double kWheelStep = 1.25;
constexpr double kButtonStep = 2.0;
constexpr int kMargin = 16;
constexpr int kLegendWidth = 170;

QColor Blend(const QColor& a, const QColor& b, double t) {
    const auto mix = [t](int x, int y) { return static_cast<int>(std::lround(x + (y - x) * t)); };
    return {mix(a.red(), b.red()), mix(a.green(), b.green()), mix(a.blue(), b.blue())};
}

QColor ClassColor(int index) {
    return Blend(kLow, kHigh, (index + 0.5) / ShadingState::kClasses);
}

QString Number(double value) {
    return QString::fromStdString(util::FormatNumber(value, '.'));
}

} // namespace

MapView::MapView(QWidget* parent) : QWidget(parent) {
    setObjectName(QStringLiteral("mapView"));
    setMinimumSize(320, 240);
    setAutoFillBackground(false);
    m_viewport.SetSize(width(), height());
    UpdateCursor();
}

void MapView::SetLayers(std::vector<DrawnLayer> layers) {
    // Layers coming to an empty map are shown whole, wherever the map looked before.
    if (FullExtent().IsEmpty()) {
        m_following = true;
    }
    m_layers = std::move(layers);
    if (m_highlight && std::none_of(m_layers.begin(), m_layers.end(), [&](const DrawnLayer& d) {
            return d.visible && d.layer == m_highlight->layer;
        })) {
        m_highlight.reset();
    }
    FitIfFollowing();
    Invalidate();
}

void MapView::SetShading(std::optional<ShadingState> shading) {
    m_shading = std::move(shading);
    FitIfFollowing(); // the legend takes room on the right
    Invalidate();
}

Extent MapView::FullExtent() const {
    Extent extent{1, 1, 0, 0};
    for (const DrawnLayer& drawn : m_layers) {
        extent = Union(extent, drawn.geometry->Bounds());
    }
    return extent;
}

Margins MapView::FitMargins() const {
    const double legend = m_shading ? kLegendWidth : 0;
    return {kMargin, kMargin, kMargin + legend, kMargin};
}

void MapView::FitIfFollowing() {
    if (m_following) {
        m_viewport.Fit(FullExtent(), FitMargins());
    }
}

void MapView::ZoomToFullExtent() {
    m_following = true;
    FitIfFollowing();
    Invalidate();
}

void MapView::ZoomToExtent(const Extent& extent) {
    if (extent.IsEmpty()) {
        return;
    }
    m_following = false;
    m_viewport.Fit(extent, FitMargins());
    Invalidate();
}

void MapView::ZoomBy(double factor) {
    m_following = false;
    m_viewport.ZoomAt({width() / 2.0, height() / 2.0}, factor);
    Invalidate();
}

void MapView::SetTool(Tool tool) {
    m_tool = tool;
    UpdateCursor();
}

void MapView::UpdateCursor() {
    setCursor(m_tool == Tool::Pan ? Qt::OpenHandCursor : Qt::WhatsThisCursor);
}

std::optional<FeatureHit> MapView::FeatureAt(const ShapePoint& at) const {
    for (auto it = m_layers.rbegin(); it != m_layers.rend(); ++it) {
        if (!it->visible) {
            continue;
        }
        if (const auto feature = it->geometry->FeatureAt(at.x, at.y)) {
            return FeatureHit{it->layer, *feature};
        }
    }
    return std::nullopt;
}

void MapView::SetHighlight(std::optional<FeatureHit> hit) {
    m_highlight = std::move(hit);
    update();
}

QString MapView::LegendTitle() const {
    return m_shading ? QString::fromStdString(m_shading->Field()) : QString();
}

std::vector<LegendEntry> MapView::Legend() const {
    std::vector<LegendEntry> entries;
    if (!m_shading) {
        return entries;
    }
    const auto ranges = m_shading->Legend();
    for (std::size_t i = 0; i < ranges.size(); ++i) {
        entries.push_back({Number(ranges[i].from) + QStringLiteral(" – ") + Number(ranges[i].to),
                           ClassColor(static_cast<int>(i))});
    }
    return entries;
}

void MapView::Invalidate() {
    m_pictureValid = false;
    update();
}

void MapView::RenderPicture() {
    m_picture = QImage(size(), QImage::Format_RGB32);
    m_picture.fill(kBackground);
    std::array<QRgb, ShadingState::kClasses> colors{};
    for (int i = 0; i < ShadingState::kClasses; ++i) {
        colors[static_cast<std::size_t>(i)] = ClassColor(i).rgb();
    }
    std::vector<RenderLayer> layers;
    for (const DrawnLayer& drawn : m_layers) {
        if (!drawn.visible) {
            continue;
        }
        RenderLayer layer;
        layer.geometry = drawn.geometry.get();
        layer.fill = drawn.fill.rgb();
        layer.selected = drawn.selected.get();
        if (m_shading && m_shading->Shades(*drawn.layer)) {
            layer.classes = &m_shading->FeatureClasses();
            layer.classColors = colors;
            layer.noValue = kNoValue.rgb();
        }
        layers.push_back(layer);
    }
    RenderMap(m_picture, m_viewport, layers, kOutline.rgb());
    m_pictureShift = {};
    m_pictureValid = true;
}

void MapView::paintEvent(QPaintEvent*) {
    QPainter painter(this);
    if (FullExtent().IsEmpty()) {
        painter.fillRect(rect(), kBackground);
        painter.setPen(QColor(120, 120, 120));
        painter.drawText(rect(), Qt::AlignCenter, tr("Aucune couche de polygones à dessiner"));
        return;
    }
    if (!m_pictureValid || m_picture.size() != size()) {
        RenderPicture();
    }
    if (!m_pictureShift.isNull()) {
        painter.fillRect(rect(), kBackground);
    }
    painter.drawImage(m_pictureShift, m_picture);
    PaintHighlight(painter);
    if (m_shading) {
        PaintLegend(painter);
    }
}

void MapView::PaintHighlight(QPainter& painter) const {
    if (!m_highlight) {
        return;
    }
    const auto drawn = std::find_if(m_layers.begin(), m_layers.end(), [&](const DrawnLayer& d) {
        return d.layer == m_highlight->layer;
    });
    if (drawn == m_layers.end() || m_highlight->feature >= drawn->geometry->FeatureCount()) {
        return;
    }
    const LayerGeometry& geometry = *drawn->geometry;
    QPainterPath path;
    for (std::size_t r = geometry.FirstRing(m_highlight->feature);
         r < geometry.EndRing(m_highlight->feature); ++r) {
        QPolygonF ring;
        for (const ShapePoint& p : geometry.Ring(r)) {
            const ScreenPoint s = m_viewport.ToScreen(p);
            ring << QPointF(s.x, s.y) + m_pictureShift;
        }
        path.addPolygon(ring);
        path.closeSubpath();
    }
    painter.setRenderHint(QPainter::Antialiasing);
    painter.strokePath(path, QPen(kHighlight, 2.5));
}

void MapView::PaintLegend(QPainter& painter) const {
    const auto entries = Legend();
    const QFontMetrics metrics(font());
    const int line = metrics.height() + 6;
    const int boxHeight = 16 + line * (static_cast<int>(entries.size()) + 2);
    const QRect box(width() - kLegendWidth, kMargin, kLegendWidth - kMargin, boxHeight);
    painter.setRenderHint(QPainter::Antialiasing, false);
    painter.setPen(QColor(180, 180, 180));
    painter.setBrush(QColor(255, 255, 255, 235));
    painter.drawRoundedRect(box, 4, 4);
    painter.setPen(Qt::black);
    QFont bold = font();
    bold.setBold(true);
    painter.setFont(bold);
    painter.drawText(box.adjusted(10, 8, -8, 0), Qt::AlignLeft | Qt::AlignTop,
                     metrics.elidedText(LegendTitle(), Qt::ElideRight, box.width() - 18));
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

void MapView::resizeEvent(QResizeEvent*) {
    m_viewport.SetSize(width(), height());
    FitIfFollowing();
    Invalidate();
}

void MapView::wheelEvent(QWheelEvent* event) {
    const double notches = event->angleDelta().y() / 120.0;
    if (notches == 0 || !m_viewport.IsSet()) {
        return;
    }
    m_following = false;
    const QPointF at = event->position();
    m_viewport.ZoomAt({at.x(), at.y()}, std::pow(kWheelStep, notches));
    Invalidate();
    event->accept();
}

void MapView::mousePressEvent(QMouseEvent* event) {
    if (event->button() == Qt::LeftButton || event->button() == Qt::MiddleButton) {
        m_pressAt = event->position();
        m_lastDragAt = event->position();
        m_dragging = false;
    }
}

void MapView::mouseMoveEvent(QMouseEvent* event) {
    if (!m_pressAt || !m_viewport.IsSet()) {
        return;
    }
    const QPointF at = event->position();
    if (!m_dragging && (at - *m_pressAt).manhattanLength() < QApplication::startDragDistance()) {
        return;
    }
    if (!m_dragging) {
        m_dragging = true;
        setCursor(Qt::ClosedHandCursor);
    }
    const QPointF delta = at - m_lastDragAt;
    m_lastDragAt = at;
    m_following = false;
    m_viewport.Pan(delta.x(), delta.y());
    // The picture follows the hand; it is drawn again when the button is released.
    m_pictureShift += delta;
    update();
}

void MapView::mouseReleaseEvent(QMouseEvent* event) {
    if (!m_pressAt) {
        return;
    }
    if (m_dragging) {
        // The last stretch of the drag may come with the release alone.
        const QPointF delta = event->position() - m_lastDragAt;
        m_viewport.Pan(delta.x(), delta.y());
        UpdateCursor();
        Invalidate();
    } else if (m_tool == Tool::Identify && event->button() == Qt::LeftButton && m_identify &&
               m_viewport.IsSet()) {
        const QPointF at = event->position();
        m_identify(m_viewport.ToMap({at.x(), at.y()}));
    }
    m_pressAt.reset();
    m_dragging = false;
}

void AddMapTools(QToolBar& bar, MapView& view) {
    const auto add = [&](const QString& name, const QString& text, const QString& tip) {
        QAction* action = bar.addAction(text);
        action->setObjectName(name);
        action->setToolTip(tip);
        return action;
    };
    QObject::connect(add(QStringLiteral("zoomIn"), QStringLiteral("Zoom +"),
                         QStringLiteral("Zoom avant (ou la molette)")),
                     &QAction::triggered, &view, [&view] { view.ZoomBy(kButtonStep); });
    QObject::connect(add(QStringLiteral("zoomOut"), QStringLiteral("Zoom −"),
                         QStringLiteral("Zoom arrière (ou la molette)")),
                     &QAction::triggered, &view, [&view] { view.ZoomBy(1 / kButtonStep); });
    QObject::connect(add(QStringLiteral("fullExtent"), QStringLiteral("Étendue complète"),
                         QStringLiteral("Afficher toutes les couches")),
                     &QAction::triggered, &view, [&view] { view.ZoomToFullExtent(); });
    bar.addSeparator();
    auto* tools = new QActionGroup(&bar);
    QAction* pan = add(QStringLiteral("panTool"), QStringLiteral("Déplacer"),
                       QStringLiteral("Glisser pour déplacer la carte"));
    QAction* identify = add(QStringLiteral("identifyTool"), QStringLiteral("Identifier"),
                            QStringLiteral("Cliquer sur une entité pour voir ses attributs"));
    for (QAction* tool : {pan, identify}) {
        tool->setCheckable(true);
        tools->addAction(tool);
    }
    pan->setChecked(view.CurrentTool() == MapView::Tool::Pan);
    identify->setChecked(view.CurrentTool() == MapView::Tool::Identify);
    QObject::connect(pan, &QAction::triggered, &view,
                     [&view] { view.SetTool(MapView::Tool::Pan); });
    QObject::connect(identify, &QAction::triggered, &view,
                     [&view] { view.SetTool(MapView::Tool::Identify); });
}

} // namespace quorel::host_app
