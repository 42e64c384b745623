// The aggregation run on a real shapefile and on a GeoPackage GDAL made, through the hosts: each
// operator's stored degrees against an independent computation read back with GDAL or SQLite,
// the refusals that leave the table alone, the default name's numbering and the records, beside
// the shapefile or in the GeoPackage.

#include "criterion/AggregationRun.h"

#include "errors/ErrorLog.h"
#include "fzy/AggregationRecords.h"
#include "source/Application.h"
#include "source/OpenSource.h"
#include "tests/host/gpkg/TestGeoPackages.h"
#include "tests/host/shapefile/TestShapefiles.h"
#include "tests/support/RecordingMessageUi.h"
#include "util/Error.h"
#include "util/TextSource.h"

#include <gdal.h>
#include <ogr_api.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstring>
#include <functional>
#include <numeric>
#include <tuple>

namespace quorel::criterion {
namespace {

using host::Value;

class TextsById final : public util::ITextSource {
public:
    std::string ResourceString(std::int16_t id) const override {
        return "T" + std::to_string(id) + (id == 315 ? " %1 %2" : "");
    }
};

// What the table keeps of a degree: 11 decimals.
double Stored(double value) {
    char text[64];
    const auto end = std::to_chars(text, text + sizeof text, value, std::chars_format::fixed, 11);
    double back = 0;
    std::from_chars(text, end.ptr, back);
    return back;
}

constexpr std::size_t kRows = 40;

// Three criterion-like fields (two decimals, as a .dbf keeps them), a Null in row 3 of B, and
// a field of other numbers.
double DegreeA(std::size_t i) {
    return static_cast<double>(i % 11) / 10.0;
}
double DegreeB(std::size_t i) {
    return static_cast<double>((i * 7) % 101) / 100.0;
}
double DegreeC(std::size_t i) {
    return static_cast<double>((i * 3) % 5) / 4.0;
}

class AggregationRunTest : public ::testing::Test {
protected:
    void SetUp() override {
        std::vector<std::vector<Value>> rows;
        for (std::size_t i = 0; i < kRows; ++i) {
            rows.push_back({DegreeA(i), i == 3 ? Value{} : Value{DegreeB(i)}, DegreeC(i),
                            static_cast<double>(i) - 5.0});
        }
        if (OnGeoPackage()) {
            testing::MakeGeoPackage(m_folder.File("parcels.gpkg"),
                                    {{"parcels", {"FZY_A", "FZY_B", "FZY_C", "SLOPE"}, rows}});
            m_layer = source::OpenSourceLayer(*m_app, m_folder.File("parcels.gpkg"), "");
        } else {
            testing::MakeShapefile(m_folder.Path(), "parcels",
                                   {{"FZY_A", 'N', 19, 11},
                                    {"FZY_B", 'N', 19, 11},
                                    {"FZY_C", 'N', 19, 11},
                                    {"SLOPE", 'N', 7, 2}},
                                   rows);
            m_layer = m_app->AddShapefileLayer(m_folder.File("parcels.shp"));
        }
        m_state.g_app = m_app;
        m_state.g_layer_name = m_layer->Name();
        m_state.g_layer_path = m_layer->FeatureClass()->Workspace()->PathName();
        m_state.g_layer_index = 0;
    }

    virtual bool OnGeoPackage() const { return false; }

    // The layer's aggregation records, where the layer keeps them.
    std::vector<fzy::AggregationRecord> Records() const {
        return fzy::OpenAggregationRecords(m_layer->FeatureClass(), m_state.g_layer_path,
                                           m_state.g_layer_name)
            ->Records();
    }

    RunOutcome Run(const Aggregation& aggregation, const std::vector<std::string>& inputs,
                   const std::string& name = "") {
        return m_run.Run({inputs, aggregation, name});
    }

    testing::GdalTable Table() const { return testing::ReadWithGdal(m_folder.File("parcels.shp")); }

    std::vector<std::string> FieldNames() const {
        std::vector<std::string> names;
        for (const auto& field : Table().fields) {
            names.push_back(field.name);
        }
        return names;
    }

    std::string LastBox() const { return m_ui.boxes.empty() ? "" : m_ui.boxes.back().text; }

    testing::ScratchFolder m_folder;
    std::shared_ptr<source::Application> m_app = std::make_shared<source::Application>();
    std::shared_ptr<host::IFeatureLayer> m_layer;
    ComponentState m_state;
    util::RecordingMessageUi m_ui;
    TextsById m_texts;
    errors::ErrorLog m_log{m_ui, errors::ComponentIdentity{m_folder.Path(), "quorel", "10.3.2"},
                           [] { return std::time_t{0}; }};
    AggregationRun m_run{m_state, m_ui, m_texts, m_log};
};

// Each operator on the three fields, written independently of Aggregate.
struct RunCase {
    Aggregation aggregation;
    double (*expected)(double a, double b, double c);
};

void PrintTo(const RunCase& c, std::ostream* os) {
    *os << AggregationOperatorName(c.aggregation.op);
}

class AggregationRunOperatorTest
    : public AggregationRunTest,
      public ::testing::WithParamInterface<std::tuple<RunCase, bool /* on a GeoPackage */>> {
protected:
    bool OnGeoPackage() const override { return std::get<1>(GetParam()); }
};

TEST_P(AggregationRunOperatorTest, storesEachFeaturesCombinedDegreeAndRecordsIt) {
    const RunCase& c = std::get<0>(GetParam());
    std::vector<std::string> statusTexts;
    m_app->Bar()->SetMessageListener([&](std::int32_t pane, const std::string& text) {
        statusTexts.push_back(std::to_string(pane) + text);
    });
    ASSERT_EQ(Run(c.aggregation, {"FZY_A", "FZY_B", "FZY_C"}), RunOutcome::Done) << LastBox();
    EXPECT_EQ(m_run.OutputName(), "FZY_AGG");
    EXPECT_EQ(LastBox(), "T318 FZY_AGG");
    EXPECT_EQ(statusTexts, (std::vector<std::string>{"0T317", "0"}));

    // A shapefile's table keeps 11 decimals, a GeoPackage the whole double.
    std::vector<Value> stored;
    if (OnGeoPackage()) {
        for (const auto& row : testing::Query(m_folder.File("parcels.gpkg"),
                                              "SELECT FZY_AGG FROM parcels ORDER BY fid")) {
            stored.push_back(row[0] == "NULL" ? Value{} : Value{std::stod(row[0])});
        }
    } else {
        const testing::GdalTable table = Table();
        ASSERT_EQ(table.fields.size(), 5u);
        EXPECT_EQ(table.fields[4].name, "FZY_AGG");
        EXPECT_EQ(table.fields[4].precision, 11);
        for (const auto& row : table.rows) {
            stored.push_back(row[4]);
        }
    }
    ASSERT_EQ(stored.size(), kRows);
    for (std::size_t i = 0; i < kRows; ++i) {
        SCOPED_TRACE(i);
        if (i == 3) {
            EXPECT_TRUE(host::IsNull(stored[i])); // a Null input
            continue;
        }
        const double expected = c.expected(DegreeA(i), DegreeB(i), DegreeC(i));
        ASSERT_TRUE(std::holds_alternative<double>(stored[i]));
        if (OnGeoPackage()) {
            EXPECT_NEAR(std::get<double>(stored[i]), expected, 1e-15);
        } else {
            EXPECT_NEAR(std::get<double>(stored[i]), Stored(expected), 1e-11);
        }
    }

    const auto records = Records();
    ASSERT_EQ(records.size(), 1u);
    EXPECT_EQ(records[0].field, "FZY_AGG");
    EXPECT_EQ(records[0].inputs, (std::vector<std::string>{"FZY_A", "FZY_B", "FZY_C"}));
    EXPECT_EQ(records[0].op, AggregationOperatorName(c.aggregation.op));
    EXPECT_EQ(records[0].gamma.has_value(), c.aggregation.op == AggregationOperator::Gamma);
    EXPECT_EQ(records[0].weights, c.aggregation.weights);
    EXPECT_EQ(records[0].created.size(), std::strlen("2026-11-24T14:05:00+01:00"));
}

INSTANTIATE_TEST_SUITE_P(
    Operators, AggregationRunOperatorTest,
    ::testing::Combine(
        ::testing::Values(RunCase{{AggregationOperator::And, 0, {}},
                                  [](double a, double b, double c) {
                                      return std::min({a, b, c});
                                  }},
                          RunCase{{AggregationOperator::Or, 0, {}},
                                  [](double a, double b, double c) {
                                      return std::max({a, b, c});
                                  }},
                          RunCase{{AggregationOperator::Product, 0, {}},
                                  [](double a, double b, double c) { return a * b * c; }},
                          RunCase{{AggregationOperator::Sum, 0, {}},
                                  [](double a, double b, double c) {
                                      return 1 - (1 - a) * (1 - b) * (1 - c);
                                  }},
                          RunCase{{AggregationOperator::Gamma, 0.25, {}},
                                  [](double a, double b, double c) {
                                      return std::pow(1 - (1 - a) * (1 - b) * (1 - c), 0.25) *
                                             std::pow(a * b * c, 0.75);
                                  }},
                          RunCase{{AggregationOperator::Mean, 0, {2, 1, 1}},
                                  [](double a, double b, double c) { return (2 * a + b + c) / 4; }},
                          RunCase{{AggregationOperator::Owa, 0, {3, 2, 1}},
                                  [](double a, double b, double c) {
                                      std::vector<double> v = {a, b, c};
                                      std::sort(v.begin(), v.end());
                                      return (3 * v[2] + 2 * v[1] + v[0]) / 6;
                                  }}),
        ::testing::Bool()),
    [](const auto& test) {
        return std::string(AggregationOperatorName(std::get<0>(test.param).aggregation.op)) +
               (std::get<1>(test.param) ? "OnGeoPackage" : "OnShapefile");
    });

TEST_F(AggregationRunTest, anInputOutOfRangeIsRefusedWithItsNameAndCountAndNothingChanges) {
    const auto before = testing::ReadBytes(m_folder.File("parcels.dbf"));
    // SLOPE holds -5 to 34: 6 values in [0, 1] (0 and 1 included), 34 outside.
    EXPECT_EQ(Run({AggregationOperator::And, 0, {}}, {"FZY_A", "SLOPE"}), RunOutcome::Refused);
    EXPECT_EQ(LastBox(), "T315 SLOPE 38");
    EXPECT_EQ(testing::ReadBytes(m_folder.File("parcels.dbf")), before);
    EXPECT_FALSE(testing::FileExists(m_folder.File("parcels.fzy.json")));
    EXPECT_FALSE(m_ui.busy);
}

TEST_F(AggregationRunTest, weightsThatDoNotFitTheFieldsAreRefusedBeforeTheLayerIsTouched) {
    EXPECT_EQ(Run({AggregationOperator::Mean, 0, {1, 2}}, {"FZY_A", "FZY_B", "FZY_C"}),
              RunOutcome::Refused);
    EXPECT_EQ(LastBox(), "T313");
    EXPECT_TRUE(m_ui.busyChanges.empty());
    EXPECT_EQ(FieldNames().size(), 4u);
}

TEST_F(AggregationRunTest, refusesWhileEditingAndInputsThatAreNotNumericFields) {
    m_app->EditorExtension()->SetEditState(host::kEditStateEditing);
    EXPECT_EQ(Run({AggregationOperator::Or, 0, {}}, {"FZY_A", "FZY_B"}), RunOutcome::Refused);
    EXPECT_EQ(LastBox(), "T133");
    m_app->EditorExtension()->SetEditState(host::kEditStateNotEditing);
    EXPECT_EQ(Run({AggregationOperator::Or, 0, {}}, {"FZY_A", "NOPE"}), RunOutcome::Refused);
    EXPECT_EQ(LastBox(), "T316");
    EXPECT_EQ(FieldNames().size(), 4u);
}

TEST_F(AggregationRunTest, theDefaultNameIsNumberedAndRecordsOfRemovedFieldsAreDropped) {
    const Aggregation product{AggregationOperator::Product, 0, {}};
    ASSERT_EQ(Run(product, {"FZY_A", "FZY_B"}), RunOutcome::Done) << LastBox();
    ASSERT_EQ(Run(product, {"FZY_A", "FZY_C"}, "FZY_AGG"), RunOutcome::Done) << LastBox();
    EXPECT_EQ(m_run.OutputName(), "FZY_AGG1");
    // A typed name the table has is refused, not numbered.
    EXPECT_EQ(Run(product, {"FZY_A", "FZY_C"}, "FZY_AGG1"), RunOutcome::Refused);
    EXPECT_EQ(LastBox(), "T157 FZY_AGG1");
    {
        GDALAllRegister();
        const std::unique_ptr<void, decltype(&GDALClose)> dataset(
            GDALOpenEx(m_folder.File("parcels.shp").c_str(), GDAL_OF_VECTOR | GDAL_OF_UPDATE,
                       nullptr, nullptr, nullptr),
            &GDALClose);
        OGRLayerH layer = GDALDatasetGetLayer(dataset.get(), 0);
        ASSERT_EQ(
            OGR_L_DeleteField(layer, OGR_FD_GetFieldIndex(OGR_L_GetLayerDefn(layer), "FZY_AGG")),
            OGRERR_NONE);
    }
    ASSERT_EQ(Run(product, {"FZY_B", "FZY_C"}, "MINE"), RunOutcome::Done) << LastBox();
    const auto records = Records();
    ASSERT_EQ(records.size(), 2u);
    EXPECT_EQ(records[0].field, "FZY_AGG1");
    EXPECT_EQ(records[1].field, "MINE");
    EXPECT_EQ(records[1].inputs, (std::vector<std::string>{"FZY_B", "FZY_C"}));
}

// Records whose every change fails, as a full disk or a lost connection would make them.
class FailingRecords final : public fzy::IAggregationRecords {
public:
    explicit FailingRecords(std::unique_ptr<fzy::IAggregationRecords> records)
        : m_records(std::move(records)) {}
    std::string Location() const override { return m_records->Location(); }
    bool Writable() const override { return true; }
    std::vector<fzy::AggregationRecord> Records() const override { return m_records->Records(); }
    void Validate(const std::function<bool(const std::string&)>& fieldExists) override {
        m_records->Validate(fieldExists);
    }
    void Append(const fzy::AggregationRecord& /*record*/) override {
        throw Error(error_number::kHostFailure, "test", "the record cannot be written");
    }

private:
    std::unique_ptr<fzy::IAggregationRecords> m_records;
};

class AggregationRunGeoPackageTest : public AggregationRunTest {
protected:
    bool OnGeoPackage() const override { return true; }

    std::vector<std::string> Columns() const {
        std::vector<std::string> names;
        for (const auto& row : testing::Query(m_folder.File("parcels.gpkg"),
                                              "SELECT name FROM pragma_table_info('parcels')")) {
            names.push_back(row[0]);
        }
        return names;
    }
};

TEST_F(AggregationRunGeoPackageTest, aFailedRecordUndoesTheColumnAndValidationDropsGoneColumns) {
    const Aggregation product{AggregationOperator::Product, 0, {}};
    ASSERT_EQ(Run(product, {"FZY_A", "FZY_B"}, "GONE"), RunOutcome::Done) << LastBox();
    ASSERT_EQ(Run(product, {"FZY_A", "FZY_C"}, "KEPT"), RunOutcome::Done) << LastBox();
    testing::Query(m_folder.File("parcels.gpkg"), "ALTER TABLE parcels DROP COLUMN GONE");
    const auto columns = Columns();

    // The column is added and filled before the record fails: the whole transaction goes, the
    // validation with it.
    AggregationRun failing(m_state, m_ui, m_texts, m_log, [](const ComponentState& state) {
        return std::make_unique<FailingRecords>(LayerAggregationRecords(state));
    });
    EXPECT_EQ(failing.Run({{"FZY_B", "FZY_C"}, product, "FAILED"}), RunOutcome::Failed);
    EXPECT_NE(LastBox().find("the record cannot be written"), std::string::npos) << LastBox();
    EXPECT_EQ(LastBox().find("T183"), std::string::npos) << LastBox(); // no field is kept
    EXPECT_EQ(Columns(), columns);
    EXPECT_EQ(Records().size(), 2u);

    ASSERT_EQ(Run(product, {"FZY_B", "FZY_C"}, "MINE"), RunOutcome::Done) << LastBox();
    std::vector<std::string> fields;
    for (const auto& record : Records()) {
        fields.push_back(record.field);
    }
    EXPECT_EQ(fields, (std::vector<std::string>{"KEPT", "MINE"}));
    EXPECT_EQ(testing::Query(m_folder.File("parcels.gpkg"),
                             "SELECT count(*) FROM gpkg_metadata_reference")[0][0],
              "2");
}

} // namespace
} // namespace quorel::criterion
