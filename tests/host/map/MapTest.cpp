#include "host/map/Application.h"
#include "host/memory/MemoryHost.h"

#include "util/Error.h"

#include "tests/support/Thrown.h"

#include <gtest/gtest.h>

namespace quorel::host::map {
namespace {

using quorel::test::Thrown;

TEST(MapTest, layerByPositionOutOfRangeSaysWhatTheMapHolds) {
    Map map;
    for (const char* name : {"roads", "parcels"}) {
        auto layer = std::make_shared<FeatureLayer>();
        layer->SetName(name);
        map.AddLayer(layer);
    }
    EXPECT_EQ(map.Layer(1)->Name(), "parcels");
    EXPECT_EQ(Thrown([&] { map.Layer(2); }).Description(),
              "No layer at position 2 (the map has 2 layers)");
}

TEST(ApplicationTest, statusBarKeepsPaneTextsAndTellsItsListeners) {
    memory::MemoryApplication app;
    std::vector<std::string> shown;
    std::vector<double> progress;
    app.Bar()->SetMessageListener([&](std::int32_t pane, const std::string& text) {
        shown.push_back(std::to_string(pane) + ":" + text);
    });
    app.Bar()->SetProgressListener([&](double fraction) { progress.push_back(fraction); });
    app.StatusBar()->Message(0, "Calcul en cours");
    app.StatusBar()->Message(2, "x");
    app.StatusBar()->Progress(0.5);
    app.StatusBar()->Progress(-3);
    EXPECT_EQ(app.StatusBar()->MessageText(0), "Calcul en cours");
    EXPECT_EQ(app.StatusBar()->MessageText(1), "");
    EXPECT_EQ(shown, (std::vector<std::string>{"0:Calcul en cours", "2:x"}));
    EXPECT_EQ(progress, (std::vector<double>{0.5, -1}));
}

} // namespace
} // namespace quorel::host::map
