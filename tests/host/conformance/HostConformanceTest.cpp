// What every host keeps of the host interfaces' contract, run unchanged against each. Adding a
// host is one fixture function and one line in the instantiation at the end.

#include "criterion/Membership.h"
#include "criterion/Script.h"
#include "host/api/LayerWalk.h"
#include "host/api/Selection.h"
#include "host/map/Map.h"
#include "host/memory/MemoryHost.h"
#include "host/shapefile/Application.h"
#include "source/Application.h"
#include "source/OpenSource.h"
#include "tests/host/gpkg/TestGeoPackages.h"
#include "tests/host/postgis/TestPostgis.h"
#include "tests/host/shapefile/TestShapefiles.h"
#include "tests/support/LockError.h"
#include "util/Error.h"

#include "tests/support/Thrown.h"

#include <gtest/gtest.h>

#include <cmath>
#include <filesystem>
#include <functional>
#include <map>
#include <set>

namespace quorel::host {
namespace {

using quorel::test::Thrown;

using Rows = std::vector<std::vector<double>>;

struct HostFixture {
    const char* name;
    // An application whose focus map holds one polygon layer "PARCELS", its data in `folder`,
    // with these numeric fields and rows (a value per field).
    std::function<std::shared_ptr<IApplication>(
        const std::string& folder, const std::vector<std::string>& fields, const Rows& rows)>
        make;
    // The host's own fields, listed before the data's.
    std::vector<std::string> ownFields;
    std::optional<std::size_t> nameByteLimit;
};

void PrintTo(const HostFixture& host, std::ostream* os) {
    *os << host.name;
}

const std::vector<std::string> kFields{"SLOPE", "AREA"};
const Rows kRows{{-1.0, 10}, {2.5, 20}, {10.0, 30}, {20.0, 40}, {30.0, 50}};

std::vector<std::string> Names(IEnumLayer& layers) {
    std::vector<std::string> names;
    while (const auto layer = layers.Next()) {
        names.push_back(layer->Name());
    }
    return names;
}

class HostConformanceTest : public ::testing::TestWithParam<HostFixture> {
protected:
    void SetUp() override {
        m_app = GetParam().make(m_folder.Path(), kFields, kRows);
        m_map = m_app->Document()->FocusMap();
        ASSERT_EQ(m_map->LayerCount(), 1);
        m_layer = std::dynamic_pointer_cast<IFeatureLayer>(m_map->Layer(0));
        ASSERT_NE(m_layer, nullptr);
        m_class = m_layer->FeatureClass();
    }

    void AddDouble(const std::string& name) {
        const auto field = m_app->Factory().NewField();
        field->SetName(name);
        field->SetType(kFieldTypeDouble);
        m_class->AddField(*field);
    }

    // The field's values through a fresh cursor, Null as NaN.
    std::vector<double> Column(const std::string& name) const {
        const auto cursor = m_layer->Search(false);
        const std::int32_t index = cursor->Fields()->FindField(name);
        std::vector<double> values;
        while (const auto row = cursor->NextRow()) {
            const Value value = row->GetValue(index);
            values.push_back(IsNull(value) ? NAN : std::get<double>(value));
        }
        return values;
    }

    static std::vector<double> Given(std::size_t field) {
        std::vector<double> values;
        for (const auto& row : kRows) {
            values.push_back(row[field]);
        }
        return values;
    }

    // Every row's object id, in the cursor's order.
    std::vector<std::int64_t> ObjectIds(bool recycling) const {
        const auto cursor = m_layer->Search(recycling);
        ObjectIdReader reader(*cursor->Fields());
        std::vector<std::int64_t> ids;
        while (const auto row = cursor->NextRow()) {
            ids.push_back(reader.Next(*row));
        }
        return ids;
    }

    std::shared_ptr<IFeatureLayer> NewLayer(const std::string& name) const {
        auto layer = m_app->Factory().NewFeatureLayer();
        layer->SetName(name);
        layer->SetFeatureClass(m_class);
        return layer;
    }

    testing::ScratchFolder m_folder;
    std::shared_ptr<IApplication> m_app;
    std::shared_ptr<IMap> m_map;
    std::shared_ptr<IFeatureLayer> m_layer;
    std::shared_ptr<IFeatureClass> m_class;
};

TEST_P(HostConformanceTest, layersAreAppendedAndGroupsOpenOnlyWhenRecursive) {
    auto group = std::make_shared<map::GroupLayer>();
    group->SetName("GROUP");
    group->Add(NewLayer("INNER"));
    m_map->AddLayer(group);
    const auto last = NewLayer("LAST");
    m_map->AddLayer(last);
    EXPECT_EQ(m_map->Layer(1), group);
    EXPECT_EQ(m_map->Layer(2), last);

    using List = std::vector<std::string>;
    EXPECT_EQ(Names(*m_map->Layers(UID{kFeatureLayerInterfaceId}, false)),
              (List{"PARCELS", "LAST"}));
    EXPECT_EQ(Names(*m_map->Layers(UID{kFeatureLayerInterfaceId}, true)),
              (List{"PARCELS", "INNER", "LAST"}));
    EXPECT_EQ(Names(*m_map->Layers(UID{kGroupLayerInterfaceId}, true)), (List{"GROUP"}));
    EXPECT_EQ(Names(*m_map->Layers(UID{kLayerInterfaceId}, true)),
              (List{"PARCELS", "GROUP", "INNER", "LAST"}));
    List walked;
    for (const auto& layer : FeatureLayersOf(*m_map)) {
        walked.push_back(layer->Name());
    }
    EXPECT_EQ(walked, (List{"PARCELS", "INNER", "LAST"}));
    EXPECT_THROW(m_map->Layers(UID{"{00000000-0000-0000-0000-000000000000}"}, false), Error);

    m_map->DeleteLayer(group);
    ASSERT_EQ(m_map->LayerCount(), 2);
    EXPECT_EQ(m_map->Layer(1), last);
}

TEST_P(HostConformanceTest, fieldsKeepTheDataOrderAfterTheHostsOwnAndNamesMatchExactly) {
    const auto fields = m_class->Fields();
    const auto& own = GetParam().ownFields;
    ASSERT_EQ(fields->FieldCount(), static_cast<std::int32_t>(own.size() + kFields.size()));
    for (std::size_t i = 0; i < own.size(); ++i) {
        EXPECT_EQ(fields->Field(static_cast<std::int32_t>(i))->Name(), own[i]);
    }
    const auto first = static_cast<std::int32_t>(own.size());
    EXPECT_EQ(fields->FindField("SLOPE"), first);
    EXPECT_EQ(m_class->FindField("AREA"), first + 1);
    EXPECT_EQ(fields->FindField("slope"), -1);
    EXPECT_EQ(m_class->FindField("Area"), -1);
    EXPECT_THROW(fields->Field(fields->FieldCount()), Error);
}

TEST_P(HostConformanceTest, aFieldIsAppendedNullAndAFailedAddChangesNothing) {
    const std::int32_t count = m_class->Fields()->FieldCount();
    const auto limit = GetParam().nameByteLimit;
    EXPECT_EQ(m_class->FieldNameByteLimit(), limit);
    EXPECT_EQ(m_class->FieldNameByteLength("ÉTÉ"), 5u);

    std::vector<std::string> refused{"SLOPE", ""};
    if (limit) {
        refused.push_back(std::string(*limit + 1, 'N'));
    }
    for (const auto& name : refused) {
        SCOPED_TRACE(name);
        EXPECT_THROW(AddDouble(name), Error);
        EXPECT_EQ(m_class->Fields()->FieldCount(), count);
    }
    EXPECT_EQ(Column("SLOPE"), Given(0));

    // A name of the limit's length still goes in (a long one where there is no limit).
    const std::string longest(limit ? *limit : 40, 'L');
    AddDouble("FZY");
    AddDouble(longest);
    const auto fields = m_class->Fields();
    ASSERT_EQ(fields->FieldCount(), count + 2);
    EXPECT_EQ(fields->Field(count)->Name(), "FZY");
    EXPECT_EQ(fields->FindField(longest), count + 1);
    for (const double value : Column("FZY")) {
        EXPECT_TRUE(std::isnan(value));
    }
    EXPECT_EQ(Column("AREA"), Given(1));
}

TEST_P(HostConformanceTest, cursorsGiveEveryRowRecyclingOrFresh) {
    for (const bool recycling : {false, true}) {
        SCOPED_TRACE(recycling);
        const auto cursor = m_layer->Search(recycling);
        const std::int32_t slope = cursor->Fields()->FindField("SLOPE");
        std::vector<std::shared_ptr<IRow>> rows;
        std::vector<double> read;
        while (const auto row = cursor->NextRow()) {
            read.push_back(std::get<double>(row->GetValue(slope)));
            rows.push_back(row);
        }
        EXPECT_EQ(read, Given(0));
        if (!recycling) {
            // Fresh rows keep their values once the cursor has moved on.
            for (std::size_t i = 0; i < rows.size(); ++i) {
                EXPECT_EQ(rows[i]->GetValue(slope), Value(kRows[i][0]));
            }
        }
    }
}

TEST_P(HostConformanceTest, statisticsCoverEveryRowOfTheLayer) {
    const auto statistics = m_app->Factory().NewDataStatistics();
    statistics->SetField("AREA");
    statistics->SetCursor(m_layer->Search(true));
    const auto results = statistics->Statistics();
    EXPECT_EQ(results->Count(), 5);
    EXPECT_EQ(results->Minimum(), 10);
    EXPECT_EQ(results->Maximum(), 50);
    EXPECT_EQ(results->Mean(), 30);
    EXPECT_EQ(statistics->UniqueValueCount(), 5);
}

TEST_P(HostConformanceTest, theCalculatorStoresTheScriptsDegrees) {
    struct Kind {
        int kind;
        double a, b, c, d;
        const char* field;
    };
    for (const Kind& k : {Kind{2, 0, 10, 20, 1e15, "TRI"}, Kind{5, 0, 5, 15, 25.5, "TRAP"}}) {
        SCOPED_TRACE(k.kind);
        AddDouble(k.field);
        const auto calculator = m_app->Factory().NewCalculator();
        calculator->SetCursor(m_class->Search(true));
        calculator->SetPreExpression(
            *criterion::BuildPreExpression(k.kind, "SLOPE", k.a, k.b, k.c, k.d));
        calculator->SetExpression(criterion::kCalculatorExpression);
        calculator->SetField(k.field);
        calculator->Calculate();
        const auto degrees = Column(k.field);
        ASSERT_EQ(degrees.size(), kRows.size());
        for (std::size_t i = 0; i < kRows.size(); ++i) {
            EXPECT_NEAR(degrees[i], criterion::Membership(k.kind, kRows[i][0], k.a, k.b, k.c, k.d),
                        1e-9);
        }
    }
}

TEST_P(HostConformanceTest, aFailingScriptThrowsItsErrorAndLeavesANewFieldNull) {
    AddDouble("FZY");
    const auto calculator = m_app->Factory().NewCalculator();
    calculator->SetCursor(m_class->Search(true));
    calculator->SetPreExpression("Val = 1 / ([SLOPE] - [SLOPE])");
    calculator->SetExpression("Val");
    calculator->SetField("FZY");
    EXPECT_EQ(Thrown([&] { calculator->Calculate(); }).Number(), error_number::kDivisionByZero);
    for (const double value : Column("FZY")) {
        EXPECT_TRUE(std::isnan(value));
    }
}

TEST_P(HostConformanceTest, oneWriterPerLayerUntilItLetsGo) {
    testing::ScratchFolder elsewhere;
    const auto other = GetParam().make(m_folder.Path(), kFields, kRows);
    const auto another = GetParam().make(elsewhere.Path(), kFields, kRows);
    // Where the layer's data lie: a folder of shapefiles, a GeoPackage file, a database.
    const std::string data = m_class->Workspace()->PathName();
    const auto anotherLayer =
        std::dynamic_pointer_cast<IFeatureLayer>(another->Document()->FocusMap()->Layer(0));
    ASSERT_NE(anotherLayer, nullptr);
    const std::string elsewhereData = anotherLayer->FeatureClass()->Workspace()->PathName();

    auto held = m_app->LockLayerForWriting(data, "PARCELS");
    ASSERT_NE(held, nullptr);
    EXPECT_EQ(test::LockError(*m_app, data, "PARCELS"), error_number::kHostLayerLocked);
    EXPECT_EQ(test::LockError(*other, data, "PARCELS.shp"), error_number::kHostLayerLocked);
    EXPECT_EQ(test::LockError(*another, elsewhereData, "PARCELS"), 0);
    held.reset();
    EXPECT_EQ(test::LockError(*other, data, "PARCELS"), 0);
}

struct SelectionCounter final : ISelectionEvents {
    void SelectionChanged() override { ++heard; }
    int heard = 0;
};

TEST_P(HostConformanceTest, aSelectionHoldsObjectIdsOnceAndIsHeardOnlyWhenItChanges) {
    IFeatureSelection* selection = SelectionOf(m_layer);
    ASSERT_NE(selection, nullptr);
    EXPECT_TRUE(selection->SelectedIds().empty());

    // Ids are one per feature, the same through every cursor and after a field is added.
    const auto ids = ObjectIds(false);
    ASSERT_EQ(ids.size(), kRows.size());
    EXPECT_EQ(std::set<std::int64_t>(ids.begin(), ids.end()).size(), ids.size());
    EXPECT_EQ(ObjectIds(true), ids);
    AddDouble("FZY");
    EXPECT_EQ(ObjectIds(false), ids);

    SelectionCounter counter;
    selection->Advise(&counter);
    // The features whose SLOPE is 10 or more, given backwards and one twice.
    std::vector<std::int64_t> steep{ids[4], ids[3], ids[2], ids[4]};
    selection->SelectFeatures(steep);
    EXPECT_EQ(selection->SelectedIds(), (std::vector<std::int64_t>{ids[2], ids[3], ids[4]}));
    for (std::size_t i = 0; i < ids.size(); ++i) {
        EXPECT_EQ(selection->IsSelected(ids[i]), kRows[i][0] >= 10) << i;
    }
    EXPECT_EQ(counter.heard, 1);
    selection->SelectFeatures({ids[2], ids[3], ids[4]});
    EXPECT_EQ(counter.heard, 1) << "the same features again is no change";
    selection->Clear();
    selection->Clear();
    EXPECT_EQ(counter.heard, 2);
    EXPECT_TRUE(selection->SelectedIds().empty());
    selection->Unadvise(&counter);
    selection->SelectFeatures({ids[0]});
    EXPECT_EQ(counter.heard, 2);
}

TEST_P(HostConformanceTest, eachLayerSelectsApartAndOtherDataEmptyItsSelection) {
    const auto ids = ObjectIds(false);
    const auto other = NewLayer("OTHER");
    m_map->AddLayer(other);
    IFeatureSelection* selection = SelectionOf(m_layer);
    IFeatureSelection* otherSelection = SelectionOf(other);
    ASSERT_TRUE(selection != nullptr && otherSelection != nullptr);
    selection->SelectFeatures({ids[1]});
    EXPECT_TRUE(otherSelection->SelectedIds().empty());

    SelectionCounter counter;
    selection->Advise(&counter);
    m_layer->SetFeatureClass(m_class);
    EXPECT_EQ(selection->SelectedIds(), std::vector<std::int64_t>{ids[1]});
    m_layer->SetFeatureClass(nullptr);
    EXPECT_TRUE(selection->SelectedIds().empty());
    EXPECT_EQ(counter.heard, 1);
    selection->Unadvise(&counter);
}

// The rows in another type of cell.
template <typename Cell> std::vector<std::vector<Cell>> RowsOf(const Rows& rows) {
    std::vector<std::vector<Cell>> cells;
    for (const auto& row : rows) {
        cells.emplace_back(row.begin(), row.end());
    }
    return cells;
}

HostFixture ShapefileHost() {
    return {"shapefile",
            [](const std::string& folder, const std::vector<std::string>& fields,
               const Rows& rows) -> std::shared_ptr<IApplication> {
                if (!std::filesystem::exists(folder + "/PARCELS.shp")) {
                    std::vector<tools::FieldSpec> specs;
                    for (const auto& name : fields) {
                        specs.push_back({name, 'N', 12, 4});
                    }
                    testing::MakeShapefile(folder, "PARCELS", specs, RowsOf<Value>(rows));
                }
                auto app = std::make_shared<shapefile::Application>();
                app->SetWriteLockWait(std::chrono::milliseconds(0));
                app->AddShapefileLayer(folder + "/PARCELS.shp");
                return app;
            },
            {"FID", "Shape"},
            10};
}

HostFixture MemoryHost() {
    return {"memory",
            [](const std::string& folder, const std::vector<std::string>& fields,
               const Rows& rows) -> std::shared_ptr<IApplication> {
                auto app = std::make_shared<memory::MemoryApplication>();
                std::vector<memory::MemoryFeatureClass::FieldSpec> specs;
                for (const auto& name : fields) {
                    specs.push_back({name, kFieldTypeDouble});
                }
                const auto layer = app->AddFeatureLayer(folder, "PARCELS", kGeometryPolygon, specs);
                for (const auto& row : rows) {
                    memory::MemoryApplication::MemoryClass(*layer).AddRow(
                        std::vector<Value>(row.begin(), row.end()));
                }
                return app;
            },
            {},
            std::nullopt};
}

HostFixture GeoPackageHost() {
    return {"geopackage",
            [](const std::string& folder, const std::vector<std::string>& fields,
               const Rows& rows) -> std::shared_ptr<IApplication> {
                const std::string path = folder + "/PARCELS.gpkg";
                if (!std::filesystem::exists(path)) {
                    testing::MakeGeoPackage(path, {{"PARCELS", fields, RowsOf<Value>(rows)}});
                }
                auto app = std::make_shared<source::Application>();
                app->SetWriteLockWait(std::chrono::milliseconds(0));
                source::OpenSourceLayer(*app, path, "");
                return app;
            },
            {"fid", "geom"},
            std::nullopt};
}

HostFixture PostgisHost() {
    return {"postgis",
            [](const std::string& folder, const std::vector<std::string>& fields,
               const Rows& rows) -> std::shared_ptr<IApplication> {
                // One database per folder, made at the folder's first use.
                static std::map<std::string, std::string> databases;
                auto& source = databases[folder];
                if (source.empty()) {
                    source = testing::MakePostgisTable("PARCELS", fields,
                                                       RowsOf<std::optional<double>>(rows));
                }
                auto app = std::make_shared<source::Application>();
                app->SetWriteLockWait(std::chrono::milliseconds(0));
                source::OpenSourceLayer(*app, source, "");
                return app;
            },
            {"fid", "geom"},
            63};
}

INSTANTIATE_TEST_SUITE_P(Hosts, HostConformanceTest,
                         ::testing::Values(ShapefileHost(), MemoryHost(), GeoPackageHost(),
                                           PostgisHost()),
                         [](const auto& test) { return std::string(test.param.name); });

} // namespace
} // namespace quorel::host
