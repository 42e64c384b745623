#include "criterion/RunCriterion.h"

#include "criterion/FuzzyKind.h"
#include "criterion/Membership.h"
#include "criterion/Parameters.h"
#include "criterion/PlainRunDialog.h"
#include "errors/ErrorLog.h"
#include "fzy/FzyFormat.h"
#include "fzy/IO_fzyext.h"
#include "host/memory/MemoryHost.h"
#include "host/shapefile/Application.h"
#include "host/shapefile/Shapefile.h"
#include "tests/fzy/FzyFiles.h"
#include "tests/fzy/FzyTestSupport.h"
#include "tests/host/shapefile/TestShapefiles.h"
#include "tests/support/RecordingMessageUi.h"
#include "util/Error.h"
#include "util/MessageUi.h"

#include <gtest/gtest.h>

#include <chrono>
#include <fstream>

namespace quorel::criterion {
namespace {

using host::Value;

constexpr std::size_t kRows = 60;

double SlopeOf(std::size_t i) {
    return static_cast<double>(i) * 0.5 - 2.0; // -2 to 27.5, every break point of the cases
}

class RunCriterionTest : public ::testing::Test {
protected:
    void SetUp() override {
        std::vector<std::vector<Value>> rows;
        for (std::size_t i = 0; i < kRows; ++i) {
            rows.push_back({static_cast<double>(i * 37 % 1000), i == 5 ? Value{} : SlopeOf(i),
                            std::string("p") + std::to_string(i)});
        }
        testing::MakeShapefile(
            m_folder.Path(), "parcels",
            {{"POPULATION", 'N', 9, 0}, {"SLOPE", 'N', 7, 2}, {"NAME", 'C', 10, 0}}, rows);
        m_app->AddShapefileLayer(m_folder.File("parcels.shp"));
        m_state.g_app = m_app;
        m_state.g_layer_name = "parcels";
        m_state.g_layer_path = m_folder.Path();
        m_state.g_layer_index = 0;
        m_dialog.fieldList = {"POPULATION", "SLOPE"};
    }

    RunOutcome Run(int kind, const std::array<std::string, 4>& boxes, const std::string& field,
                   const std::string& newName) {
        m_state.kind = static_cast<std::int16_t>(kind);
        m_dialog.Select(field);
        m_dialog.boxes = boxes;
        m_dialog.newName = newName;
        return m_run.RunCriterion();
    }

    testing::GdalTable Table() const { return testing::ReadWithGdal(m_folder.File("parcels.shp")); }

    std::vector<std::string> FieldNames(const std::string& shapefile = "parcels") const {
        std::vector<std::string> names;
        for (const auto& field : testing::ReadWithGdal(m_folder.File(shapefile + ".shp")).fields) {
            names.push_back(field.name);
        }
        return names;
    }

    // The number entries the metadata file holds now.
    int NumberEntries(const std::string& shapefile = "parcels") {
        util::RecordingMessageUi ui;
        fzy::IO_fzyext reader(ui, m_texts, m_window, m_app);
        std::string name = shapefile;
        reader.fzy_io_open(m_folder.Path(), name);
        const int count = reader.NumberCount();
        reader.fzy_io_close();
        return count;
    }

    std::string LastBox() const { return m_ui.boxes.empty() ? "" : m_ui.boxes.back().text; }

    // A run stopped before its new field: the table stays as it was, the metadata file is
    // opened (and validated) only from the run's step that does it, nothing is recorded, and
    // the report says what is wrong, then the host's detail. Only failures are logged.
    void ExpectStopped(int kind, const std::array<std::string, 4>& boxes, const std::string& field,
                       const std::string& newName, RunOutcome outcome,
                       const std::vector<std::string>& says, bool metadataOpened) {
        m_app->SetWriteLockWait(std::chrono::milliseconds(0));
        const std::string table = testing::ReadBytes(m_folder.File("parcels.dbf"));
        EXPECT_EQ(Run(kind, boxes, field, newName), outcome);
        for (const std::string& piece : says) {
            EXPECT_NE(LastBox().find(piece), std::string::npos) << piece << " in " << LastBox();
        }
        EXPECT_EQ(m_ui.boxes.back().icon, util::MessageIcon::Critical);
        EXPECT_EQ(testing::ReadBytes(m_folder.File("parcels.dbf")), table);
        EXPECT_EQ(testing::FileExists(m_folder.File("parcels.fzy")), metadataOpened);
        EXPECT_EQ(NumberEntries(), 0);
        EXPECT_FALSE(m_ui.busy);
        EXPECT_EQ(testing::FileExists(m_folder.File("quorel.log")), outcome == RunOutcome::Failed);
    }

    testing::ScratchFolder m_folder;
    std::shared_ptr<host::shapefile::Application> m_app =
        std::make_shared<host::shapefile::Application>();
    ComponentState m_state;
    PlainRunDialog m_dialog;
    util::RecordingMessageUi m_ui;
    fzy::test::IdTextSource m_texts;
    fzy::test::RecordingInfoWindow m_window;
    fzy::IO_fzyext m_fzy{m_ui, m_texts, m_window, m_app};
    errors::ErrorLog m_log{m_ui, errors::ComponentIdentity{m_folder.Path(), "quorel", "10.3.2"},
                           [] { return std::time_t{0}; }};
    CriterionRun m_run{m_state, m_dialog, m_ui, m_texts, m_fzy, m_log};
};

struct KindCase {
    int kind;
    std::array<std::string, 4> boxes;
};

void PrintTo(const KindCase& c, std::ostream* os) {
    *os << "kind " << c.kind;
}

class RunKindTest : public RunCriterionTest, public ::testing::WithParamInterface<KindCase> {};

TEST_P(RunKindTest, storesEachDegreeAsMembershipGivesItAndRecordsTheCriterion) {
    const KindCase& k = GetParam();
    std::vector<std::string> statusTexts;
    m_app->Bar()->SetMessageListener([&](std::int32_t pane, const std::string& text) {
        statusTexts.push_back(std::to_string(pane) + text);
    });
    ASSERT_EQ(Run(k.kind, k.boxes, "SLOPE", "FZY_SLOPE"), RunOutcome::Done) << LastBox();
    EXPECT_EQ(LastBox(), "T162");
    EXPECT_EQ(m_ui.busyChanges, (std::vector<bool>{true, false}));
    EXPECT_EQ(statusTexts, (std::vector<std::string>{"0T134", "0"}));
    double a = ParseNumberText(k.boxes[0], kDefaultA);
    double b = ParseNumberText(k.boxes[1], kDefaultBCD);
    double c = ParseNumberText(k.boxes[2], kDefaultBCD);
    double d = ParseNumberText(k.boxes[3], kDefaultBCD);
    CompleteParameters(k.kind, a, b, c, d);
    const testing::GdalTable table = Table();
    ASSERT_EQ(table.fields.size(), 4u);
    EXPECT_EQ(table.fields[3].name, "FZY_SLOPE");
    for (std::size_t i = 0; i < kRows; ++i) {
        SCOPED_TRACE(i);
        if (i == 5) {
            continue; // a Null slope; the calculator's tests cover it
        }
        EXPECT_EQ(table.rows[i][3],
                  Value(testing::Stored(Membership(k.kind, SlopeOf(i), a, b, c, d))));
    }
    EXPECT_EQ(NumberEntries(), 1);
    // The numeric fields listed again, the new one among them, nothing selected.
    EXPECT_EQ(m_dialog.fieldList, (std::vector<std::string>{"POPULATION", "SLOPE", "FZY_SLOPE"}));
    EXPECT_EQ(m_dialog.FieldListIndex(), -1);
}

INSTANTIATE_TEST_SUITE_P(Kinds, RunKindTest,
                         ::testing::Values(KindCase{1, {"3", "", "", ""}},
                                           KindCase{2, {"0", "10", "20", ""}},
                                           KindCase{3, {"0", "7,5", "", ""}},
                                           KindCase{4, {"2", "12.5", "", ""}},
                                           KindCase{5, {"0", "5", "15", "25"}}));

TEST_F(RunCriterionTest, fromTheTenthNumberedCandidateTheNameKeepsTenCharacters) {
    host::memory::MemoryFields table;
    const auto add = [&table](const std::string& name) {
        table.Add(std::make_shared<host::map::Field>(name, host::kFieldTypeDouble));
    };
    EXPECT_EQ(MakeOutputFieldName("FZY_POPULATION", table), "FZY_POPULA");
    EXPECT_EQ(MakeOutputFieldName("FZY_POP", table), "FZY_POP");
    add("FZY_POPULA");
    for (int i = 1; i <= 9; ++i) {
        add("FZY_POPUL" + std::to_string(i));
    }
    EXPECT_EQ(MakeOutputFieldName("FZY_POPULATION", table), "FZY_POPU10");
    add("FZY_POPU10");
    EXPECT_EQ(MakeOutputFieldName("FZY_POPULATION", table), "FZY_POPU11");
    // Exact comparison: another letter case is another name.
    EXPECT_EQ(MakeOutputFieldName("fzy_populations", table), "fzy_popula");
    // A name of 10 characters or fewer is taken as typed, even when it exists.
    EXPECT_EQ(MakeOutputFieldName("FZY_POPULA", table), "FZY_POPULA");
}

TEST_F(RunCriterionTest, kindZeroAddsTheFieldWithoutScriptAndRecordsKindZero) {
    EXPECT_EQ(Run(0, {"1", "2", "3", "4"}, "SLOPE", "FZY_ZERO"), RunOutcome::Done) << LastBox();
    const testing::GdalTable table = Table();
    ASSERT_EQ(table.fields.size(), 4u);
    for (const auto& row : table.rows) {
        EXPECT_TRUE(host::IsNull(row[3]));
    }
    EXPECT_EQ(NumberEntries(), 1);
}

TEST_F(RunCriterionTest, divisionByZeroOfTheScriptIsReportedAndTheAddedFieldStays) {
    // a = b passes the order check but makes the rising ramp divide by zero.
    EXPECT_EQ(Run(Triangle, {"5", "5", "10", ""}, "SLOPE", "FZY_DIV"), RunOutcome::Failed);
    EXPECT_NE(LastBox().find("Division by zero"), std::string::npos) << LastBox();
    EXPECT_NE(LastBox().find("Error#11"), std::string::npos) << LastBox();
    EXPECT_NE(LastBox().find("Debug=8"), std::string::npos) << LastBox();
    // The report says which field stays in the table.
    EXPECT_NE(LastBox().find("T183 FZY_DIV"), std::string::npos) << LastBox();
    EXPECT_EQ(FieldNames().back(), "FZY_DIV");
    EXPECT_EQ(NumberEntries(), 0);
    // The status bar keeps its text when the run ends by an error.
    EXPECT_EQ(m_app->StatusBar()->MessageText(0), "T134");
}

// A metadata file at the size limit, its one entry kept by validation: the new entry, with the
// folder and name the run gives it, would not fit. (The count limit is the metadata tests'.)
TEST_F(RunCriterionTest, aFullMetadataFileRefusesTheRunBeforeTheFieldIsAdded) {
    fzy::NumberEntry kept;
    kept.FieldName = kept.AliasName = "POPULATION";
    kept.Folder = std::string(32766 - 23 - 56 - 27, 'x');
    kept.ShapeName = "parcels";
    const fzy::test::Bytes bytes = fzy::test::MakeFile(0, 1, 0, {fzy::EncodeNumberEntry(kept)});
    const std::string before(bytes.begin(), bytes.end());
    std::ofstream(m_folder.File("parcels.fzy"), std::ios::binary) << before;
    EXPECT_EQ(Run(Trapezoid, {"0", "5", "15", "25"}, "SLOPE", "FZY_SLOPE"), RunOutcome::Refused);
    EXPECT_EQ(LastBox().rfind("T180", 0), 0u) << LastBox();
    EXPECT_EQ(FieldNames().size(), 3u);
    EXPECT_EQ(testing::ReadBytes(m_folder.File("parcels.fzy")), before);
    EXPECT_FALSE(m_ui.busy);
}

// Two runs with one output name on a table of one field, in the table's encoding.
struct OutputNameCase {
    const char* name;
    const char* encoding;
    const char* source;
    const char* typed;   // nullptr: the proposal, "FZY_" and the source field
    const char* refusal; // the refusal's text, or nullptr when both runs add a field
    std::vector<std::string> added;
};

void PrintTo(const OutputNameCase& c, std::ostream* os) {
    *os << c.name;
}

class RunOutputNameTest : public RunCriterionTest,
                          public ::testing::WithParamInterface<OutputNameCase> {};

TEST_P(RunOutputNameTest, fitsTheTablesBytesAndTheMetadataCodePage) {
    const OutputNameCase& c = GetParam();
    testing::MakeShapefile(m_folder.Path(), "sols", {{c.source, 'N', 7, 2}}, {{1.0}, {2.0}},
                           c.encoding);
    m_app->AddShapefileLayer(m_folder.File("sols.shp"));
    m_state.g_layer_name = "sols";
    m_state.g_layer_index = 1;
    m_dialog.fieldList = {c.source};
    const std::string typed = c.typed ? c.typed : std::string("FZY_") + c.source;
    for (int run = 0; run < 2; ++run) {
        const RunOutcome outcome = Run(RisingRamp, {"0", "2", "", ""}, c.source, typed);
        EXPECT_EQ(outcome, c.refusal ? RunOutcome::Refused : RunOutcome::Done) << LastBox();
        if (c.refusal) {
            EXPECT_EQ(LastBox().rfind(std::string(c.refusal) + " " + typed, 0), 0u) << LastBox();
        }
    }
    std::vector<std::string> expected = {c.source};
    expected.insert(expected.end(), c.added.begin(), c.added.end());
    EXPECT_EQ(FieldNames("sols"), expected);
    EXPECT_EQ(NumberEntries("sols"), static_cast<int>(c.added.size()));
}

INSTANTIATE_TEST_SUITE_P(
    Names, RunOutputNameTest,
    ::testing::Values(
        OutputNameCase{"utf8", "UTF-8", "ÉPAISSEU", nullptr, nullptr, {"FZY_ÉPAIS", "FZY_ÉPAI1"}},
        OutputNameCase{
            "cp1252", "ISO-8859-1", "ÉPAISSEU", nullptr, nullptr, {"FZY_ÉPAISS", "FZY_ÉPAIS1"}},
        // A proposal of 10 characters or fewer is cut too, when it has too many bytes.
        OutputNameCase{"shortProposal", "UTF-8", "ÉÉÉÉÉ", nullptr, nullptr, {"FZY_ÉÉÉ", "FZY_ÉÉ1"}},
        OutputNameCase{"typedTooManyBytes", "UTF-8", "ÉPAISSEU", "ÉÉÉÉÉÉ", "T181", {}},
        OutputNameCase{"typedOutsideCp1252", "UTF-8", "ŁÓDŹ", "ŁÓDŹ", "T182", {}}),
    [](const auto& testInfo) { return std::string(testInfo.param.name); });

const std::array<std::string, 4> kTrapezoid = {"0", "5", "15", "25"};

TEST_F(RunCriterionTest, withNoFieldSelectedNothingIsOpened) {
    ExpectStopped(Trapezoid, kTrapezoid, "", "FZY_SLOPE", RunOutcome::Refused, {"T131"}, false);
}

TEST_F(RunCriterionTest, parametersOutOfOrderAreRefusedWithTheirValues) {
    ExpectStopped(RisingRamp, {"5", "2", "", ""}, "SLOPE", "FZY_SLOPE", RunOutcome::Refused,
                  {"T132:5:2:100000000000000:1E+15"}, false);
}

TEST_F(RunCriterionTest, refusesWhileTheEditorIsEditingButValidatesTheMetadataFirst) {
    m_app->EditorExtension()->SetEditState(host::kEditStateEditing);
    ExpectStopped(Trapezoid, kTrapezoid, "SLOPE", "FZY_SLOPE", RunOutcome::Refused, {"T133"}, true);
}

TEST_F(RunCriterionTest, shortNameTheHostRefusesIsReportedAtStep42AndNothingIsRecorded) {
    ExpectStopped(Trapezoid, kTrapezoid, "SLOPE", "SLOPE", RunOutcome::Failed,
                  {"Field already exists: SLOPE", "Debug=42", "cmd_go_Click"}, true);
}

TEST_F(RunCriterionTest, aLayerPositionOutsideTheMapIsReported) {
    m_state.g_layer_index = 3;
    ExpectStopped(Trapezoid, kTrapezoid, "SLOPE", "FZY_SLOPE", RunOutcome::Failed,
                  {"No layer at position 3", "Debug=101"}, true);
}

TEST_F(RunCriterionTest, aLayerAnotherRunHoldsIsReportedWithTheHostsDetail) {
    // Another process's run, as far as the lock can tell.
    const auto other = std::make_shared<host::shapefile::Application>();
    const auto held = other->LockLayerForWriting(m_folder.Path(), "parcels.shp");
    ExpectStopped(Trapezoid, kTrapezoid, "SLOPE", "FZY_SLOPE", RunOutcome::Failed,
                  {"T170\r\n", "Another run is writing the shapefile ", "Debug=101"}, false);
}

TEST_F(RunCriterionTest, aTableWhoseHeaderUndercountsItsRecordsIsReportedWithTheHostsDetail) {
    const std::string dbf = m_folder.File("parcels.dbf");
    std::string bytes = testing::ReadBytes(dbf);
    bytes[4] = 10; // of 60
    std::ofstream(dbf, std::ios::binary | std::ios::trunc) << bytes;
    ExpectStopped(Trapezoid, kTrapezoid, "SLOPE", "FZY_SLOPE", RunOutcome::Failed,
                  {"T172\r\n", "its header counts 10 records, the file holds 60", "Debug=101"},
                  false);
}

} // namespace
} // namespace quorel::criterion
