#include "host/shapefile/Application.h"

#include "tests/host/shapefile/TestShapefiles.h"
#include "util/Error.h"

#include <gtest/gtest.h>

namespace quorel::host::shapefile {
namespace {

std::shared_ptr<FeatureLayer> NamedFeatureLayer(const std::string& name) {
    auto layer = std::make_shared<FeatureLayer>();
    layer->SetName(name);
    return layer;
}

std::vector<std::string> Names(IEnumLayer& layers) {
    std::vector<std::string> names;
    layers.Reset();
    while (const auto layer = layers.Next()) {
        names.push_back(layer->Name());
    }
    return names;
}

class MapLayersTest : public ::testing::Test {
protected:
    void SetUp() override {
        m_map.AddLayer(NamedFeatureLayer("roads"));
        auto group = std::make_shared<GroupLayer>();
        group->SetName("group");
        group->Add(NamedFeatureLayer("inner"));
        m_map.AddLayer(group);
        m_map.AddLayer(NamedFeatureLayer("parcels"));
    }

    Map m_map;
};

TEST_F(MapLayersTest, featureLayersWithoutRecursionAreTheTopLevelOnesInMapOrder) {
    EXPECT_EQ(Names(*m_map.Layers(UID{kFeatureLayerInterfaceId}, false)),
              (std::vector<std::string>{"roads", "parcels"}));
    EXPECT_EQ(Names(*m_map.Layers(UID{kFeatureLayerInterfaceId}, true)),
              (std::vector<std::string>{"roads", "inner", "parcels"}));
    EXPECT_EQ(Names(*m_map.Layers(UID{kLayerInterfaceId}, false)),
              (std::vector<std::string>{"roads", "group", "parcels"}));
    EXPECT_THROW(m_map.Layers(UID{"{00000000-0000-0000-0000-000000000000}"}, false), Error);
}

TEST_F(MapLayersTest, layerByPositionOutOfRangeSaysWhatTheMapHolds) {
    EXPECT_EQ(m_map.Layer(2)->Name(), "parcels");
    try {
        m_map.Layer(3);
        FAIL();
    } catch (const Error& e) {
        EXPECT_EQ(e.Description(), "No layer at position 3 (the map has 3 layers)");
    }
}

TEST(ApplicationTest, editorExtensionIsFoundByItsIdAndReportsTheEditState) {
    Application app;
    const auto editor =
        std::dynamic_pointer_cast<IEditor>(app.FindExtensionByCLSID(UID{kEditorExtensionId}));
    ASSERT_NE(editor, nullptr);
    EXPECT_EQ(editor->EditState(), kEditStateNotEditing);
    app.EditorExtension()->SetEditState(kEditStateEditing);
    EXPECT_EQ(editor->EditState(), kEditStateEditing);
    EXPECT_EQ(app.FindExtensionByCLSID(UID{"esriFramework.Other"}), nullptr);
}

TEST(ApplicationTest, statusBarKeepsPaneTextsAndTellsItsListeners) {
    Application app;
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

TEST(ApplicationTest, documentsHaveAFocusMapAndTheActiveOneIsTheDocument) {
    Application app;
    const auto first = app.Documents().front();
    const auto second = app.NewDocument();
    EXPECT_EQ(app.Document(), second);
    auto other = std::make_shared<Map>("Other");
    second->AddMap(other);
    second->SetFocusMap(other);
    EXPECT_EQ(app.Document()->FocusMap()->Name(), "Other");
    app.SetActiveDocument(first);
    EXPECT_EQ(app.Document()->FocusMap()->Name(), "Layers");
    EXPECT_THROW(second->SetFocusMap(std::make_shared<Map>()), Error);
}

TEST(ApplicationTest, addsAShapefileAsALayerNamedAfterIt) {
    testing::ScratchFolder folder;
    testing::MakeShapefile(folder.Path(), "slopes", {{"SLOPE", 'N', 7, 2}}, {{3.5}});
    Application app;
    const auto layer = app.AddShapefileLayer(folder.File("slopes.shp"));
    EXPECT_EQ(layer->Name(), "slopes");
    EXPECT_TRUE(layer->Selectable());
    EXPECT_EQ(app.Document()->FocusMap()->LayerCount(), 1);
    EXPECT_EQ(layer->FeatureClass()->Workspace()->PathName(), folder.Path());
    const auto row = layer->Search(false)->NextRow();
    ASSERT_NE(row, nullptr);
    EXPECT_EQ(row->GetValue(2), Value(3.5));
}

} // namespace
} // namespace quorel::host::shapefile
