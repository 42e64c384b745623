#include "host/memory/MemoryHost.h"
#include "util/Error.h"

#include <gtest/gtest.h>

#include <cmath>

namespace quorel::host::memory {
namespace {

class MemoryHostTest : public testing::Test {
protected:
    void SetUp() override {
        m_parcels = m_app.AddFeatureLayer("/data", "PARCELLES", kGeometryPolygon,
                                          {{"FID", kFieldTypeOID}, {"SLOPE", kFieldTypeDouble}});
        Class().AddRow({0.0, 12.5});
        Class().AddRow({1.0, 3.0});
        Class().AddRow({2.0, 12.5});
    }
    MemoryFeatureClass& Class() {
        return dynamic_cast<MemoryFeatureClass&>(*m_parcels->FeatureClass());
    }

    MemoryApplication m_app;
    std::shared_ptr<MemoryFeatureLayer> m_parcels;
};

TEST_F(MemoryHostTest, applicationReachesTheLayerFieldsThroughTheDocument) {
    const auto map = m_app.Document()->FocusMap();
    ASSERT_EQ(map->LayerCount(), 1);
    const auto layer = std::dynamic_pointer_cast<IFeatureLayer>(map->Layer(0));
    ASSERT_TRUE(layer);
    const auto featureClass = layer->FeatureClass();
    EXPECT_EQ(featureClass->ShapeType(), kGeometryPolygon);
    EXPECT_EQ(featureClass->Workspace()->PathName(), "/data");
    EXPECT_EQ(featureClass->Fields()->Field(1)->Name(), "SLOPE");
    EXPECT_EQ(featureClass->FindField("slope"), -1);
    EXPECT_THROW(featureClass->Fields()->Field(2), Error);
    EXPECT_THROW(map->Layer(1), Error);
}

TEST_F(MemoryHostTest, addedFieldIsNullInEveryRowAndNamesAreUnique) {
    auto field = m_app.Factory().NewField();
    field->SetName("FZY_SLOPE");
    field->SetType(kFieldTypeDouble);
    field->SetAliasName("FZY_SLOPE");
    Class().AddField(*field);
    EXPECT_EQ(Class().FindField("FZY_SLOPE"), 2);
    EXPECT_TRUE(IsNull(Class().GetValue(1, 2)));
    EXPECT_THROW(Class().AddField(*field), Error);

    Class().FailNextAddField(-2147467259, "Table locked");
    field->SetName("OTHER");
    EXPECT_THROW(Class().AddField(*field), Error);
    EXPECT_NO_THROW(Class().AddField(*field));

    // No byte limit on names unless one is set; then a name over it is refused.
    EXPECT_FALSE(Class().FieldNameByteLimit());
    Class().LimitFieldNames(4);
    field->SetName("ÉTÉ");
    EXPECT_EQ(Class().FieldNameByteLength("ÉTÉ"), 5u);
    EXPECT_THROW(Class().AddField(*field), Error);
}

TEST_F(MemoryHostTest, recyclingCursorHandsOutTheSameRow) {
    auto recycling = Class().Search(true);
    const auto first = recycling->NextRow();
    const auto second = recycling->NextRow();
    EXPECT_EQ(first, second);
    EXPECT_EQ(std::get<double>(second->GetValue(1)), 3.0);

    auto fresh = m_parcels->Search(false);
    const auto a = fresh->NextRow();
    const auto b = fresh->NextRow();
    EXPECT_NE(a, b);
    EXPECT_EQ(std::get<double>(a->GetValue(1)), 12.5);
    EXPECT_TRUE(fresh->NextRow());
    EXPECT_FALSE(fresh->NextRow());
}

TEST_F(MemoryHostTest, layerEnumerationFollowsTheIdAndRecursion) {
    auto group = std::make_shared<MemoryGroupLayer>("GROUP");
    group->Add(std::make_shared<MemoryFeatureLayer>("INNER"));
    const auto map = m_app.FocusMemoryMap();
    map->AppendLayer(group);
    map->AddLayer(std::make_shared<MemoryLayer>("RASTER"));
    EXPECT_EQ(map->Layer(0)->Name(), "RASTER");

    auto names = [&](const char* id, bool recursive) {
        std::vector<std::string> found;
        auto layers = map->Layers(UID{id}, recursive);
        layers->Reset();
        while (auto layer = layers->Next()) {
            found.push_back(layer->Name());
        }
        return found;
    };
    EXPECT_EQ(names(kFeatureLayerInterfaceId, false), std::vector<std::string>{"PARCELLES"});
    EXPECT_EQ(names(kFeatureLayerInterfaceId, true),
              (std::vector<std::string>{"PARCELLES", "INNER"}));
    EXPECT_EQ(names("{any}", false), (std::vector<std::string>{"RASTER", "PARCELLES", "GROUP"}));
}

TEST_F(MemoryHostTest, editorStatusBarAndWorkspacesAreReachable) {
    const auto editor =
        std::dynamic_pointer_cast<IEditor>(m_app.FindExtensionByCLSID(UID{kEditorExtensionId}));
    ASSERT_TRUE(editor);
    EXPECT_EQ(editor->EditState(), kEditStateNotEditing);
    m_app.Editor()->SetEditState(kEditStateEditing);
    EXPECT_EQ(editor->EditState(), kEditStateEditing);
    EXPECT_FALSE(m_app.FindExtensionByCLSID(UID{"other"}));

    m_app.StatusBar()->Message(0, "Calcul");
    m_app.StatusBar()->Message(0, "");
    EXPECT_EQ(m_app.MemStatusBar()->history.size(), 2u);
    EXPECT_EQ(m_app.StatusBar()->MessageText(0), "");

    auto factory = m_app.Factory().NewShapefileWorkspaceFactory();
    EXPECT_EQ(factory->OpenFromFile("/data", 0)->OpenFeatureClass("PARCELLES"),
              m_parcels->FeatureClass());
    EXPECT_THROW(factory->OpenFromFile("/elsewhere", 0), Error);
    EXPECT_THROW(factory->OpenFromFile("/data", 0)->OpenFeatureClass("NONE"), Error);
}

TEST_F(MemoryHostTest, statisticsGiveDistinctValuesInOrderAndFigures) {
    Class().AddRow({3.0, Value{}});
    auto statistics = m_app.Factory().NewDataStatistics();
    statistics->SetField("SLOPE");
    statistics->SetCursor(Class().Search(false));
    EXPECT_EQ(statistics->UniqueValues(), (std::vector<Value>{12.5, 3.0}));
    EXPECT_EQ(statistics->UniqueValueCount(), 2);
    const auto results = statistics->Statistics();
    EXPECT_EQ(results->Count(), 3);
    EXPECT_EQ(results->Minimum(), 3.0);
    EXPECT_EQ(results->Maximum(), 12.5);
    EXPECT_NEAR(results->Mean(), 28.0 / 3, 1e-12);
    EXPECT_NEAR(results->StandardDeviation(), std::sqrt((2 * 9.5 * 9.5 / 9 + 19.0 * 19.0 / 9) / 3),
                1e-12);
}

TEST_F(MemoryHostTest, calculatorHandsItsSettingsToTheEngine) {
    auto plain = m_app.Factory().NewCalculator();
    EXPECT_THROW(plain->Calculate(), Error);

    m_app.SetCalculatorEngine([](MemoryCalculator& calculator) {
        auto cursor = calculator.Cursor();
        const std::int32_t field = cursor->Fields()->FindField(calculator.FieldName());
        while (auto row = cursor->NextRow()) {
            dynamic_cast<MemoryRow&>(*row).SetValue(field, 1.0);
        }
    });
    auto calculator = m_app.Factory().NewCalculator();
    calculator->SetCursor(Class().Search(true));
    calculator->SetPreExpression("Val = 1");
    calculator->SetExpression("Val");
    calculator->SetField("SLOPE");
    calculator->Calculate();
    EXPECT_EQ(std::get<double>(Class().GetValue(2, 1)), 1.0);
    ASSERT_EQ(m_app.calculators.size(), 2u);
    EXPECT_EQ(m_app.calculators[1]->PreExpression(), "Val = 1");
}

} // namespace
} // namespace quorel::host::memory
