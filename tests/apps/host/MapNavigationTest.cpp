// The map's navigation under offscreen Qt: the wheel zooms about the cursor, a drag pans by
// the distance dragged, and the full extent comes back after any of it.

#include "apps/quorel-host/MapView.h"
#include "host/shapefile/Application.h"

#include <QApplication>
#include <QMouseEvent>
#include <QWheelEvent>

#include <gtest/gtest.h>

namespace quorel::host_app {
namespace {

// A 10 x 10 grid of 100-unit squares from (1000, 5000).
std::shared_ptr<const LayerGeometry> Grid() {
    host::gdal::LayerShapes shapes;
    for (int row = 0; row < 10; ++row) {
        for (int column = 0; column < 10; ++column) {
            const double x = 1000 + column * 100.0;
            const double y = 5000 + row * 100.0;
            shapes.features.push_back(
                {{{{x, y}, {x + 100, y}, {x + 100, y + 100}, {x, y + 100}, {x, y}}}});
        }
    }
    return std::make_shared<const LayerGeometry>(LayerGeometry::FromShapes(shapes));
}

void ExpectSameExtent(const Extent& actual, const Extent& expected) {
    const double tolerance = 1e-9 * (expected.maxX - expected.minX);
    EXPECT_NEAR(actual.minX, expected.minX, tolerance);
    EXPECT_NEAR(actual.minY, expected.minY, tolerance);
    EXPECT_NEAR(actual.maxX, expected.maxX, tolerance);
    EXPECT_NEAR(actual.maxY, expected.maxY, tolerance);
}

class MapNavigationTest : public ::testing::Test {
protected:
    void SetUp() override {
        m_view.resize(480, 320);
        m_view.SetLayers({{std::make_shared<host::map::FeatureLayer>(), Grid(), Qt::white}});
        m_view.show();
        QApplication::processEvents();
    }

    void Wheel(const QPointF& at, int notches) {
        QWheelEvent event(at, m_view.mapToGlobal(at), QPoint(), QPoint(0, 120 * notches),
                          Qt::NoButton, Qt::NoModifier, Qt::NoScrollPhase, false);
        QApplication::sendEvent(&m_view, &event);
    }

    void Mouse(QEvent::Type type, const QPointF& at, Qt::MouseButton button,
               Qt::MouseButtons held) {
        QMouseEvent event(type, at, m_view.mapToGlobal(at), button, held, Qt::NoModifier);
        QApplication::sendEvent(&m_view, &event);
    }

    ShapePoint MapPointAt(const QPointF& at) const {
        return m_view.Viewport().ToMap({at.x(), at.y()});
    }

    MapView m_view;
};

// From wherever the previous notches left the view.
TEST_F(MapNavigationTest, theWheelKeepsTheMapPointUnderTheCursorWhereItIs) {
    const QPointF cursor(131, 87);
    for (const int notches : {1, -1, 3}) {
        const ShapePoint before = MapPointAt(cursor);
        const double scale = m_view.Viewport().UnitsPerPixel();
        Wheel(cursor, notches);
        EXPECT_NEAR(m_view.Viewport().UnitsPerPixel(), scale / std::pow(1.25, notches),
                    scale * 1e-12);
        const ShapePoint after = MapPointAt(cursor);
        EXPECT_NEAR(after.x, before.x, 1e-9) << notches;
        EXPECT_NEAR(after.y, before.y, 1e-9) << notches;
    }
    // The zoom buttons' steps scale the same way.
    const double scale = m_view.Viewport().UnitsPerPixel();
    m_view.ZoomBy(2);
    EXPECT_NEAR(m_view.Viewport().UnitsPerPixel(), scale / 2, scale * 1e-12);
}

TEST_F(MapNavigationTest, aDragPansByTheDraggedDistanceInMapUnits) {
    Wheel({240, 160}, 3); // panning at another scale than the fitted one
    const Extent start = m_view.VisibleExtent();
    const double scale = m_view.Viewport().UnitsPerPixel();
    Mouse(QEvent::MouseButtonPress, {100, 100}, Qt::LeftButton, Qt::LeftButton);
    Mouse(QEvent::MouseMove, {140, 120}, Qt::NoButton, Qt::LeftButton);
    Mouse(QEvent::MouseMove, {170, 150}, Qt::NoButton, Qt::LeftButton);
    Mouse(QEvent::MouseButtonRelease, {175, 152}, Qt::LeftButton, Qt::NoButton);
    // Dragged 75 pixels right and 52 down: the map shows what lay left of and above the view.
    ExpectSameExtent(m_view.VisibleExtent(), {start.minX - 75 * scale, start.minY + 52 * scale,
                                              start.maxX - 75 * scale, start.maxY + 52 * scale});
    EXPECT_DOUBLE_EQ(m_view.Viewport().UnitsPerPixel(), scale);
    // The full extent comes back whole after any navigation, fitted: the height fills the view
    // but for its margins.
    m_view.ZoomToFullExtent();
    EXPECT_TRUE(Contains(m_view.VisibleExtent(), Extent{1000, 5000, 2000, 6000}));
    EXPECT_NEAR(m_view.Viewport().UnitsPerPixel(), 1000.0 / (320 - 32), 1e-9);
}

TEST_F(MapNavigationTest, onlyTheIdentifyToolIdentifiesAndItNamesTheMapPointClicked) {
    std::optional<ShapePoint> asked;
    m_view.SetIdentifyHandler([&](const ShapePoint& at) { asked = at; });
    Mouse(QEvent::MouseButtonPress, {200, 150}, Qt::LeftButton, Qt::LeftButton);
    Mouse(QEvent::MouseButtonRelease, {200, 150}, Qt::LeftButton, Qt::NoButton);
    EXPECT_FALSE(asked) << "the pan tool does not identify";
    m_view.SetTool(MapView::Tool::Identify);
    Mouse(QEvent::MouseButtonPress, {200, 150}, Qt::LeftButton, Qt::LeftButton);
    Mouse(QEvent::MouseButtonRelease, {200, 150}, Qt::LeftButton, Qt::NoButton);
    ASSERT_TRUE(asked);
    const ShapePoint expected = MapPointAt({200, 150});
    EXPECT_DOUBLE_EQ(asked->x, expected.x);
    EXPECT_DOUBLE_EQ(asked->y, expected.y);
}

} // namespace
} // namespace quorel::host_app
