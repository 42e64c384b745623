// The GeoPackage host on files GDAL made: the GeoPackage functions its triggers call, and the
// criterion run on it (one transaction, the record in the metadata tables).

#include "host/gpkg/GeoPackage.h"
#include "criterion/FuzzyKind.h"
#include "criterion/Membership.h"
#include "criterion/Parameters.h"
#include "criterion/PlainRunDialog.h"
#include "criterion/RunCriterion.h"
#include "errors/ErrorLog.h"
#include "fzy/IO_fzyext.h"
#include "host/gpkg/Sqlite.h"
#include "source/Application.h"
#include "source/OpenSource.h"
#include "tests/fzy/FzyTestSupport.h"
#include "tests/host/gpkg/TestGeoPackages.h"
#include "tests/support/RecordingMessageUi.h"
#include "tests/support/ScratchFolder.h"

#include <gdal.h>
#include <ogr_api.h>

#include <gtest/gtest.h>

#include <cmath>
#include <cstdio>
#include <cstring>
#include <filesystem>

namespace quorel::host::gpkg {
namespace {

using host::Value;

// What a GeoPackage function gives for each geometry GDAL writes, beside OGR's own envelope.
struct GeometryCase {
    const char* name;
    const char* wkt;
};

class GeometryFunctionsTest : public ::testing::TestWithParam<GeometryCase> {};

TEST_P(GeometryFunctionsTest, giveWhatOgrReadsFromTheGeometry) {
    test::ScratchFolder folder;
    const std::string path = folder.File("g.gpkg");
    testing::MakeGeoPackage(path, {{"g", {"V"}, {{1.0}}, {GetParam().wkt}}});
    std::string wkt = GetParam().wkt;
    char* cursor = wkt.data();
    OGRGeometryH geometry = nullptr;
    ASSERT_EQ(OGR_G_CreateFromWkt(&cursor, nullptr, &geometry), OGRERR_NONE);
    OGREnvelope envelope;
    OGR_G_GetEnvelope(geometry, &envelope);
    const bool empty = OGR_G_IsEmpty(geometry);
    std::string type = OGR_G_GetGeometryName(geometry);
    OGR_G_DestroyGeometry(geometry);

    const auto database = SharedDatabase(path);
    Statement query(database->Handle(),
                    "SELECT ST_MinX(geom), ST_MaxX(geom), ST_MinY(geom), ST_MaxY(geom), "
                    "ST_IsEmpty(geom), ST_GeometryType(geom), ST_SRID(geom) FROM g");
    ASSERT_TRUE(query.Step());
    EXPECT_EQ(query.Integer(4), empty ? 1 : 0);
    if (empty) {
        EXPECT_TRUE(query.IsNull(0));
    } else {
        EXPECT_EQ(query.Double(0), envelope.MinX);
        EXPECT_EQ(query.Double(1), envelope.MaxX);
        EXPECT_EQ(query.Double(2), envelope.MinY);
        EXPECT_EQ(query.Double(3), envelope.MaxY);
    }
    EXPECT_EQ(query.Text(5), type);
}

INSTANTIATE_TEST_SUITE_P(
    Geometries, GeometryFunctionsTest,
    ::testing::Values(
        GeometryCase{"point", "POINT (3.5 -4)"}, GeometryCase{"pointZ", "POINT Z (1 2 3)"},
        GeometryCase{"line", "LINESTRING (1 2,5 -1,3 8)"},
        GeometryCase{"polygonWithHole", "POLYGON ((0 0,10 0,10 10,0 10,0 0),(2 2,3 2,3 3,2 2))"},
        GeometryCase{"multipolygon", "MULTIPOLYGON (((0 0,1 0,1 1,0 0)),((5 5,7 5,7 9,5 5)))"},
        GeometryCase{"emptyPolygon", "POLYGON EMPTY"}),
    [](const auto& test) { return std::string(test.param.name); });

constexpr std::size_t kRows = 40;

// -2 to 17.5, the break points of the cases among them; row 5 Null.
Value SlopeOf(std::size_t i) {
    return i == 5 ? Value{} : Value{static_cast<double>(i) * 0.5 - 2.0};
}

// The criterion run, as "Calculer" does it, on the only layer of a GeoPackage GDAL made.
class GeoPackageRunTest : public ::testing::Test {
protected:
    void SetUp() override {
        std::vector<std::vector<Value>> rows;
        for (std::size_t i = 0; i < kRows; ++i) {
            rows.push_back({SlopeOf(i), static_cast<double>(i)});
        }
        testing::MakeGeoPackage(m_path, {{"parcels", {"SLOPE", "AREA"}, rows}});
        m_app->SetWriteLockWait(std::chrono::milliseconds(0));
        m_layer = source::OpenSourceLayer(*m_app, m_path, "");
        m_state.g_app = m_app;
        m_state.g_layer_name = m_layer->Name();
        m_state.g_layer_path = m_layer->FeatureClass()->Workspace()->PathName();
        m_dialog.fieldList = {"SLOPE", "AREA"};
    }

    criterion::RunOutcome Run(int kind, const std::array<std::string, 4>& boxes,
                              const std::string& newName = "FZY_SLOPE") {
        m_state.kind = static_cast<std::int16_t>(kind);
        m_dialog.Select("SLOPE");
        m_dialog.boxes = boxes;
        m_dialog.newName = newName;
        return m_run.RunCriterion();
    }

    std::vector<std::vector<std::string>> Query(const std::string& sql) const {
        return testing::Query(m_path, sql);
    }

    ICriterionRecords& Records() const {
        return dynamic_cast<ICriterionRecords&>(*m_layer->FeatureClass());
    }

    std::string LastBox() const { return m_ui.boxes.empty() ? "" : m_ui.boxes.back().text; }

    test::ScratchFolder m_folder;
    const std::string m_path = m_folder.File("parcels.gpkg");
    std::shared_ptr<source::Application> m_app = std::make_shared<source::Application>();
    std::shared_ptr<IFeatureLayer> m_layer;
    criterion::ComponentState m_state;
    criterion::PlainRunDialog m_dialog;
    util::RecordingMessageUi m_ui;
    fzy::test::IdTextSource m_texts;
    fzy::test::RecordingInfoWindow m_window;
    fzy::IO_fzyext m_fzy{m_ui, m_texts, m_window, m_app};
    errors::ErrorLog m_log{m_ui, errors::ComponentIdentity{m_folder.Path(), "quorel", "10.3.2"},
                           [] { return std::time_t{0}; }};
    criterion::CriterionRun m_run{m_state, m_dialog, m_ui, m_texts, m_fzy, m_log};
};

struct KindCase {
    int kind;
    std::array<std::string, 4> boxes;
};

void PrintTo(const KindCase& c, std::ostream* os) {
    *os << "kind " << c.kind;
}

class GeoPackageRunKindTest : public GeoPackageRunTest,
                              public ::testing::WithParamInterface<KindCase> {};

TEST_P(GeoPackageRunKindTest, storesTheScriptsDegreesBitForBitAndRecordsTheCriterion) {
    const KindCase& k = GetParam();
    ASSERT_EQ(Run(k.kind, k.boxes), criterion::RunOutcome::Done) << LastBox();

    double a = criterion::ParseNumberText(k.boxes[0], criterion::kDefaultA);
    double b = criterion::ParseNumberText(k.boxes[1], criterion::kDefaultBCD);
    double c = criterion::ParseNumberText(k.boxes[2], criterion::kDefaultBCD);
    double d = criterion::ParseNumberText(k.boxes[3], criterion::kDefaultBCD);
    criterion::CompleteParameters(k.kind, a, b, c, d);
    const auto rows = Query("SELECT FZY_SLOPE FROM parcels ORDER BY fid");
    ASSERT_EQ(rows.size(), kRows);
    for (std::size_t i = 0; i < kRows; ++i) {
        SCOPED_TRACE(i);
        if (i == 5) {
            // Null stays Null but with the singleton, whose else branch gives 1.
            EXPECT_EQ(rows[i][0], k.kind == 1 ? "1" : "NULL");
            continue;
        }
        char expected[40];
        std::snprintf(expected, sizeof expected, "%.17g",
                      criterion::Membership(k.kind, std::get<double>(SlopeOf(i)), a, b, c, d));
        EXPECT_EQ(rows[i][0], expected);
    }

    const auto record = Records().Record("FZY_SLOPE");
    ASSERT_TRUE(record);
    EXPECT_EQ(record->table, "parcels");
    EXPECT_EQ(record->sourceField, "SLOPE");
    EXPECT_EQ(record->kind, k.kind);
    EXPECT_EQ(std::vector<double>({record->a, record->b, record->c, record->d}),
              std::vector<double>({a, b, c, d}));
    EXPECT_EQ(record->version, "10.3.2");
    EXPECT_EQ(record->created.size(), std::strlen("2026-11-24T14:05:00+01:00"));
    EXPECT_EQ(Query("SELECT md_scope, mime_type FROM gpkg_metadata WHERE md_standard_uri LIKE "
                    "'%quorel%'"),
              (std::vector<std::vector<std::string>>{{"attributeType", "application/json"}}));
    EXPECT_EQ(Query("SELECT reference_scope, table_name, column_name FROM "
                    "gpkg_metadata_reference WHERE column_name IS NOT NULL"),
              (std::vector<std::vector<std::string>>{{"column", "parcels", "FZY_SLOPE"}}));
    EXPECT_EQ(Query("SELECT count(*) FROM gpkg_extensions WHERE extension_name = "
                    "'gpkg_metadata' AND scope = 'read-write'")[0][0],
              "2");
    EXPECT_EQ(Query("PRAGMA integrity_check")[0][0], "ok");
    EXPECT_EQ(m_dialog.fieldList, (std::vector<std::string>{"SLOPE", "AREA", "FZY_SLOPE"}));
}

INSTANTIATE_TEST_SUITE_P(Kinds, GeoPackageRunKindTest,
                         ::testing::Values(KindCase{1, {"3", "", "", ""}},
                                           KindCase{2, {"0", "10", "20", ""}},
                                           KindCase{3, {"0", "7,5", "", ""}},
                                           KindCase{4, {"2", "12.5", "", ""}},
                                           KindCase{5, {"0", "1e-5", "15", "25"}}));

TEST_F(GeoPackageRunTest, gdalReadsTheFileTheRunWrote) {
    ASSERT_EQ(Run(5, {"0", "5", "15", "25"}), criterion::RunOutcome::Done) << LastBox();
    // GDAL's own reading, in another process: the new column and every feature.
    const std::string command = "ogrinfo -ro -al -where 'FZY_SLOPE = 1' " + m_path + " 2>&1";
    FILE* pipe = ::popen(command.c_str(), "r");
    ASSERT_NE(pipe, nullptr);
    std::string output;
    char buffer[4096];
    while (const std::size_t read = std::fread(buffer, 1, sizeof buffer, pipe)) {
        output.append(buffer, read);
    }
    EXPECT_EQ(::pclose(pipe), 0) << output;
    EXPECT_NE(output.find("FZY_SLOPE: Real"), std::string::npos) << output;
    EXPECT_NE(output.find("Feature Count: 21"), std::string::npos) << output; // 5 to 15 by 0.5
    EXPECT_EQ(output.find("ERROR"), std::string::npos) << output;
}

TEST_F(GeoPackageRunTest, aNameBeyondTenCharactersIsKeptWhole) {
    ASSERT_EQ(Run(3, {"0", "10", "", ""}, "FZY_SLOPE \"quoted\"; -- long"),
              criterion::RunOutcome::Done)
        << LastBox();
    EXPECT_TRUE(Records().Record("FZY_SLOPE \"quoted\"; -- long"));
    EXPECT_EQ(Query("SELECT count(\"FZY_SLOPE \"\"quoted\"\"; -- long\") FROM parcels")[0][0],
              "39");
}

// A failure once the transaction has begun undoes all of it: no column, no record.
TEST_F(GeoPackageRunTest, aFailingScriptLeavesTheFileAsItWas) {
    ASSERT_EQ(Run(5, {"0", "5", "15", "25"}, "FZY_KEPT"), criterion::RunOutcome::Done);
    const auto before = Query("SELECT * FROM parcels ORDER BY fid");

    EXPECT_EQ(Run(2, {"0", "0", "20", ""}), criterion::RunOutcome::Failed); // a = b: 0 / 0
    EXPECT_NE(LastBox().find("Division by zero"), std::string::npos) << LastBox();
    EXPECT_EQ(LastBox().find("T183"), std::string::npos) << LastBox(); // no field is kept
    EXPECT_EQ(Query("SELECT * FROM parcels ORDER BY fid"), before);
    EXPECT_EQ(Records().Records().size(), 1u);
    EXPECT_EQ(m_layer->FeatureClass()->FindField("FZY_SLOPE"), -1);
}

TEST_F(GeoPackageRunTest, validationRemovesTheRecordOfAColumnGone) {
    ASSERT_EQ(Run(5, {"0", "5", "15", "25"}, "FZY_GONE"), criterion::RunOutcome::Done);
    ASSERT_EQ(Run(5, {"0", "5", "15", "25"}, "FZY_KEPT"), criterion::RunOutcome::Done);
    // Another program drops the column.
    auto& database = dynamic_cast<GeoPackageFeatureClass&>(*m_layer->FeatureClass()).Db();
    database.Execute("ALTER TABLE parcels DROP COLUMN FZY_GONE");

    ASSERT_EQ(Run(3, {"0", "10", "", ""}), criterion::RunOutcome::Done);
    std::vector<std::string> columns;
    for (const auto& record : Records().Records()) {
        columns.push_back(record.column);
    }
    EXPECT_EQ(columns, (std::vector<std::string>{"FZY_KEPT", "FZY_SLOPE"}));
    EXPECT_EQ(Query("SELECT count(*) FROM gpkg_metadata")[0][0], "2");
}

} // namespace
} // namespace quorel::host::gpkg
