// The desktop host on a 1,000,000-parcel shapefile (made by the sample generator on first use,
// kept in $TMPDIR/quorel-host-bench): reading the geometry, redrawing the shaded map at the
// full extent and zoomed in (each step 4 times fewer parcels in view), beside drawing every
// polygon as a path (how the map was drawn before), and opening the attribute table.
//
//   build/dev/bench/quorel_host_map_bench [--benchmark_filter=...]

#include "apps/quorel-host/AttributeTableModel.h"
#include "apps/quorel-host/LayerGeometry.h"
#include "apps/quorel-host/MapRenderer.h"
#include "apps/quorel-host/ShadingState.h"
#include "host/gdal/LayerShapes.h"
#include "host/shapefile/DbfTable.h"
#include "tools/sample/SampleData.h"

#include <QGuiApplication>
#include <QPainter>
#include <QPainterPath>

#include <benchmark/benchmark.h>

#include <array>
#include <cstdlib>
#include <filesystem>
#include <memory>
#include <random>
#include <string>

namespace {

namespace fs = std::filesystem;
using namespace quorel::host_app;

constexpr std::size_t kParcels = 1'000'000;
constexpr int kWidth = 1280;
constexpr int kHeight = 800;

const std::string& ShpPath() {
    static const std::string path = [] {
        const char* tmp = std::getenv("TMPDIR");
        const fs::path folder = fs::path(tmp != nullptr ? tmp : "/tmp") / "quorel-host-bench";
        fs::create_directories(folder);
        const fs::path shp = folder / ("parcels-" + std::to_string(kParcels) + ".shp");
        if (!fs::exists(shp) || !fs::exists(fs::path(shp).replace_extension(".dbf"))) {
            quorel::tools::WriteSampleShapefile(shp.string(), kParcels, 7);
        }
        return shp.string();
    }();
    return path;
}

const LayerGeometry& Geometry() {
    static const LayerGeometry geometry =
        LayerGeometry::FromShapes(quorel::host::gdal::ReadLayerShapes(ShpPath()));
    return geometry;
}

const ShadingState& Shading() {
    static const ShadingState shading(nullptr, "SLOPE",
                                      quorel::host::gdal::ReadNumericColumn(ShpPath(), "SLOPE"));
    return shading;
}

const std::array<QRgb, ShadingState::kClasses> kClassColors = {
    qRgb(240, 240, 197), qRgb(186, 215, 154), qRgb(128, 185, 115), qRgb(70, 150, 85),
    qRgb(13, 113, 62)};

// The view zoomed in `steps` times by 2 about the centre of the layer.
MapViewport ViewAt(int steps) {
    MapViewport viewport;
    viewport.SetSize(kWidth, kHeight);
    viewport.Fit(Geometry().Bounds(), {16, 16, 186, 16});
    for (int i = 0; i < steps; ++i) {
        viewport.ZoomAt({kWidth / 2.0, kHeight / 2.0}, 2.0);
    }
    return viewport;
}

void BM_ReadGeometry(benchmark::State& state) {
    ShpPath();
    for (auto _ : state) {
        const LayerGeometry geometry =
            LayerGeometry::FromShapes(quorel::host::gdal::ReadLayerShapes(ShpPath()));
        benchmark::DoNotOptimize(geometry.FeatureCount());
    }
}
BENCHMARK(BM_ReadGeometry)->Unit(benchmark::kMillisecond)->Iterations(2);

void BM_RedrawShaded(benchmark::State& state) {
    const MapViewport viewport = ViewAt(static_cast<int>(state.range(0)));
    RenderLayer layer;
    layer.geometry = &Geometry();
    layer.classes = &Shading().FeatureClasses();
    layer.classColors = kClassColors;
    layer.noValue = qRgb(220, 220, 220);
    QImage image(kWidth, kHeight, QImage::Format_RGB32);
    for (auto _ : state) {
        image.fill(qRgb(250, 250, 247));
        RenderMap(image, viewport, {layer}, qRgb(90, 90, 90));
        benchmark::DoNotOptimize(image.bits());
    }
    state.counters["parcels_in_view"] =
        static_cast<double>(Geometry().Query(viewport.VisibleExtent()).size());
}
// 0: the full extent; each step halves the view's width and height.
BENCHMARK(BM_RedrawShaded)->DenseRange(0, 8, 1)->Unit(benchmark::kMillisecond);

// Every feature filled and outlined as an antialiased path, visible or not, as the map was
// drawn before its index: the figure the redraw is compared with.
void BM_RedrawEveryPolygonAsAPath(benchmark::State& state) {
    const MapViewport viewport = ViewAt(0);
    const LayerGeometry& geometry = Geometry();
    const auto& classes = Shading().FeatureClasses();
    QImage image(kWidth, kHeight, QImage::Format_RGB32);
    for (auto _ : state) {
        image.fill(qRgb(250, 250, 247));
        QPainter painter(&image);
        painter.setRenderHint(QPainter::Antialiasing);
        painter.setPen(QPen(QColor(90, 90, 90), 0.6));
        for (std::size_t f = 0; f < geometry.FeatureCount(); ++f) {
            QPainterPath path;
            path.setFillRule(Qt::OddEvenFill);
            for (std::size_t r = geometry.FirstRing(f); r < geometry.EndRing(f); ++r) {
                const auto ring = geometry.Ring(r);
                for (std::size_t i = 0; i < ring.size(); ++i) {
                    const ScreenPoint s = viewport.ToScreen(ring[i]);
                    if (i == 0) {
                        path.moveTo(s.x, s.y);
                    } else {
                        path.lineTo(s.x, s.y);
                    }
                }
                path.closeSubpath();
            }
            const std::uint8_t cls = classes[f];
            painter.fillPath(path,
                             QColor::fromRgb(cls < kClassColors.size() ? kClassColors[cls]
                                                                       : qRgb(220, 220, 220)));
            painter.drawPath(path);
        }
    }
}
BENCHMARK(BM_RedrawEveryPolygonAsAPath)->Unit(benchmark::kMillisecond)->Iterations(1);

// Opening the table: the header, the search for deleted records, and the rows a view shows
// first.
void BM_OpenTable(benchmark::State& state) {
    const std::string dbf = quorel::host::shapefile::SiblingPath(ShpPath(), ".dbf");
    for (auto _ : state) {
        AttributeTableModel model;
        model.SetTable(std::make_shared<DbfTableReader>(dbf));
        for (int row = 0; row < 40; ++row) {
            for (int column = 0; column < model.columnCount(); ++column) {
                benchmark::DoNotOptimize(model.data(model.index(row, column), Qt::DisplayRole));
            }
        }
    }
}
BENCHMARK(BM_OpenTable)->Unit(benchmark::kMillisecond);

// Scrolling anywhere: the rows of a screen at a random place of the open table.
void BM_ScrollTable(benchmark::State& state) {
    const std::string dbf = quorel::host::shapefile::SiblingPath(ShpPath(), ".dbf");
    AttributeTableModel model;
    model.SetTable(std::make_shared<DbfTableReader>(dbf));
    std::mt19937 random(3);
    std::uniform_int_distribution<int> place(0, model.rowCount() - 40);
    for (auto _ : state) {
        const int first = place(random);
        for (int row = first; row < first + 40; ++row) {
            for (int column = 0; column < model.columnCount(); ++column) {
                benchmark::DoNotOptimize(model.data(model.index(row, column), Qt::DisplayRole));
            }
        }
    }
}
BENCHMARK(BM_ScrollTable)->Unit(benchmark::kMicrosecond);

} // namespace

int main(int argc, char** argv) {
    setenv("QT_QPA_PLATFORM", "offscreen", 0);
    QGuiApplication app(argc, argv);
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) {
        return 1;
    }
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
