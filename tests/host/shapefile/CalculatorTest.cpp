#include "host/shapefile/Calculator.h"

#include "criterion/FuzzyKind.h"
#include "criterion/Membership.h"
#include "criterion/Script.h"
#include "host/shapefile/Application.h"
#include "host/shapefile/DbfTable.h"
#include "host/shapefile/Shapefile.h"
#include "tests/host/shapefile/TestShapefiles.h"
#include "util/Error.h"

#include "tests/support/Thrown.h"

#include <gtest/gtest.h>

#include <algorithm>

namespace quorel::host::shapefile {
namespace {

using quorel::test::Thrown;

void AddDouble(Application& app, const IFeatureLayer& layer, const std::string& name) {
    auto field = app.Factory().NewField();
    field->SetName(name);
    field->SetType(kFieldTypeDouble);
    layer.FeatureClass()->AddField(*field);
}

class CalculatorTest : public ::testing::Test {
protected:
    void SetUp() override {
        std::vector<std::vector<Value>> rows;
        for (int i = 0; i < 40; ++i) {
            rows.push_back(
                {i == 7 ? Value{} : Value(i * 0.75 - 3.0), Value(static_cast<double>(i))});
        }
        testing::MakeShapefile(m_folder.Path(), "parcels",
                               {{"SLOPE", 'N', 8, 2}, {"ZERO", 'N', 5, 0}}, rows);
        m_layer = m_app.AddShapefileLayer(m_folder.File("parcels.shp"));
        AddDouble(m_app, *m_layer, "OUT");
    }

    std::shared_ptr<Calculator> NewCalculator(const std::string& pre, const std::string& field) {
        auto calculator = std::dynamic_pointer_cast<Calculator>(m_app.Factory().NewCalculator());
        calculator->SetBatchBytes(300); // several batches of a few records
        calculator->SetCursor(m_layer->FeatureClass()->Search(true));
        calculator->SetPreExpression(pre);
        calculator->SetExpression("Val");
        calculator->SetField(field);
        return calculator;
    }

    testing::ScratchFolder m_folder;
    Application m_app;
    std::shared_ptr<IFeatureLayer> m_layer;
};

struct KindCase {
    int kind;
    double a, b, c, d;
};

TEST_F(CalculatorTest, reportsProgressToTheStatusBarThenHidesIt) {
    // On one thread every batch is reported; on several, those of the calling thread (the
    // status bar is not to be called from others), still rising, ending at 1.
    // Each time a field just added (OUT is added by the fixture).
    for (const auto& [threads, output] : {std::pair{1u, "OUT"}, std::pair{3u, "OUT2"}}) {
        SCOPED_TRACE(threads);
        if (std::string(output) != "OUT") {
            AddDouble(m_app, *m_layer, output);
        }
        std::vector<double> progress;
        m_app.Bar()->SetProgressListener([&](double fraction) { progress.push_back(fraction); });
        const auto calculator = NewCalculator("Val = [SLOPE] * 2", output);
        calculator->SetThreads(threads);
        calculator->Calculate();
        ASSERT_GE(progress.size(), threads == 1 ? 4u : 2u);
        EXPECT_EQ(progress.back(), -1);
        EXPECT_EQ(progress[progress.size() - 2], 1.0);
        for (std::size_t i = 1; i + 1 < progress.size(); ++i) {
            EXPECT_GT(progress[i], progress[i - 1]);
        }
    }
}

TEST_F(CalculatorTest, unknownFieldsAreNamed) {
    for (const auto& [pre, field, missing] :
         {std::tuple{"Val = [POP]", "OUT", "POP"}, std::tuple{"Val = 1", "NONE", "NONE"}}) {
        EXPECT_EQ(Thrown([&] { NewCalculator(pre, field)->Calculate(); }).Description(),
                  std::string("Field not found: ") + missing);
    }
}

TEST_F(CalculatorTest, aValueTooWideForTheFieldIsAnOverflow) {
    EXPECT_EQ(Thrown([&] { NewCalculator("Val = 1E+300", "ZERO")->Calculate(); }).Number(),
              error_number::kOverflow);
}

TEST_F(CalculatorTest, withoutPreExpressionTheEmptyValIsStoredAsNull) {
    NewCalculator("Val = 1", "OUT")->Calculate();
    NewCalculator("", "OUT")->Calculate();
    for (const auto& row : testing::ReadWithGdal(m_folder.File("parcels.shp")).rows) {
        EXPECT_TRUE(IsNull(row[2]));
    }
}

TEST_F(CalculatorTest, aScriptReadsTheRecordNumberAsFid) {
    NewCalculator("Val = [FID] + 0.5", "OUT")->Calculate();
    const testing::GdalTable table = testing::ReadWithGdal(m_folder.File("parcels.shp"));
    ASSERT_EQ(table.rows.size(), 40u);
    for (std::size_t i = 0; i < table.rows.size(); ++i) {
        EXPECT_EQ(table.rows[i][2], Value(static_cast<double>(i) + 0.5)) << i;
    }
}

// Deleted records keep their bytes and their flag, and get Null; the live ones around them get
// their values.
TEST_F(CalculatorTest, deletedRecordsKeepTheirBytesWhenTheColumnIsFilled) {
    const std::string dbf = m_folder.File("parcels.dbf");
    const std::vector<std::size_t> deleted = {0, 13, 39};
    std::vector<std::string> kept;
    {
        DbfBatchFile file(dbf, true);
        while (file.Next()) {
            for (std::size_t r = 0; r < file.BatchSize(); ++r) {
                const std::size_t index = file.BatchFirstRecord() + r;
                if (std::find(deleted.begin(), deleted.end(), index) != deleted.end()) {
                    file.Record(r)[0] = '*';
                    kept.emplace_back(file.Record(r), file.Header().recordLength);
                }
            }
            file.Write();
        }
    }
    NewCalculator("Val = [SLOPE] * 2", "OUT")->Calculate();
    DbfBatchFile file(dbf, false);
    const DbfField slope = file.Header().fields[0];
    const DbfField out = file.Header().fields[2];
    std::size_t seenDeleted = 0;
    while (file.Next()) {
        for (std::size_t r = 0; r < file.BatchSize(); ++r) {
            const char* record = file.Record(r);
            if (DbfBatchFile::IsDeleted(record)) {
                ASSERT_LT(seenDeleted, kept.size());
                const std::string& before = kept[seenDeleted++];
                EXPECT_EQ(std::string(record, before.size()), before);
                EXPECT_FALSE(ParseDbfNumber(FieldBytes(record, out))); // Null, never computed
                continue;
            }
            const std::optional<double> x = ParseDbfNumber(FieldBytes(record, slope));
            const std::optional<double> value = ParseDbfNumber(FieldBytes(record, out));
            EXPECT_EQ(value, x ? std::optional(testing::Stored(*x * 2)) : std::nullopt);
        }
    }
    EXPECT_EQ(seenDeleted, deleted.size());
}

// The counts of a range check, in batches of a few records among three threads: the interval's
// ends are in, Null is neither in nor out, deleted records do not count. A refusal changes
// nothing, and a field just added is dropped; the check of an existing field is made before it
// is filled in place.
TEST_F(CalculatorTest, aRangeCheckRefusesWithTheCountsOutsideAndChangesNothing) {
    const std::string dbf = m_folder.File("parcels.dbf");
    {
        // The last record (SLOPE 26.25, ZERO 39) deleted.
        std::string bytes = testing::ReadBytes(dbf);
        const DbfHeader header = ReadDbfHeader(dbf);
        bytes[header.headerLength + 39 * header.recordLength] = '*';
        test::WriteBytes(dbf, bytes);
    }
    const std::string before = testing::ReadBytes(dbf);
    const auto refusal = [](Calculator& calculator) {
        try {
            calculator.Calculate();
        } catch (const ValuesOutsideRange& refused) {
            return refused.Outside();
        }
        return std::vector<std::size_t>{};
    };
    // SLOPE is -3 + 0.75 i, Null at 7: 0 and 0.75 in; ZERO is i: 0 and 1 in. The script reads
    // SLOPE only: ZERO is read for the check alone.
    const auto calculator = NewCalculator("Val = [SLOPE] * 2", "OUT");
    calculator->SetThreads(3);
    EXPECT_TRUE(calculator->ChecksRangeOf(*m_layer->FeatureClass()));
    calculator->SetRangeCheck({"ZERO", "SLOPE"}, 0, 1);
    EXPECT_EQ(refusal(*calculator), (std::vector<std::size_t>{37, 36}));
    EXPECT_EQ(testing::ReadBytes(dbf), before);
    EXPECT_LT(m_layer->FeatureClass()->Fields()->FindField("OUT"), 0);

    // In place, in an existing field.
    const auto inPlace = NewCalculator("Val = [SLOPE] * 2", "ZERO");
    inPlace->SetThreads(3);
    inPlace->SetRangeCheck({"SLOPE"}, 0, 1);
    EXPECT_EQ(refusal(*inPlace), (std::vector<std::size_t>{36}));
    EXPECT_EQ(testing::ReadBytes(dbf), before);

    // Every value within: the field is added and filled.
    AddDouble(m_app, *m_layer, "OUT");
    const auto within = NewCalculator("Val = [SLOPE] * 2", "OUT");
    within->SetRangeCheck({"SLOPE", "ZERO"}, -3, 38);
    within->Calculate();
    DbfBatchFile file(dbf, false);
    ASSERT_TRUE(file.Next());
    EXPECT_EQ(ParseDbfNumber(FieldBytes(file.Record(1), file.Header().fields[2])), -4.5);
}

// Features with the same text in the one field a script reads get the same value, whatever the
// batches: one record in three has a text of its own (10,000, more than a thread keeps from batch
// to batch, neighbours differing in their last character), the others repeat 97; some are Null.
TEST(CalculatorRepeatsTest, featuresSharingATextGetItsValue) {
    testing::ScratchFolder folder;
    std::vector<std::vector<Value>> rows;
    for (int i = 0; i < 30000; ++i) {
        const int own = i / 3;
        const int shared = i % 97;
        rows.push_back({i % 3 == 0 ? (own % 50 == 7 ? Value{} : Value(own * 0.01))
                                   : (shared == 5 ? Value{} : Value(shared * 0.37)),
                        Value(static_cast<double>(i % 7))}); // a field the script does not read
    }
    testing::MakeShapefile(folder.Path(), "parcels", {{"SLOPE", 'N', 8, 2}, {"OTHER", 'N', 5, 0}},
                           rows);
    Application app;
    const auto layer = app.AddShapefileLayer(folder.File("parcels.shp"));
    AddDouble(app, *layer, "OUT");
    auto calculate = [&](const std::string& pre) {
        auto calculator = std::dynamic_pointer_cast<Calculator>(app.Factory().NewCalculator());
        ASSERT_NE(calculator, nullptr);
        calculator->SetBatchBytes(64 << 10); // about 2,000 records: a third of them new texts
        calculator->SetThreads(1);
        calculator->SetCursor(layer->FeatureClass()->Search(true));
        calculator->SetPreExpression(pre);
        calculator->SetExpression("Val");
        calculator->SetField("OUT");
        calculator->Calculate();
    };
    // The singleton gives Null texts a value (its Else), the trapezoids leave them Null.
    for (const KindCase& k : {KindCase{criterion::Trapezoid, 10.0, 30.0, 60.0, 90.0},
                              KindCase{criterion::Singleton, 12.34, 0.0, 0.0, 0.0}}) {
        SCOPED_TRACE(k.kind);
        calculate(*criterion::BuildPreExpression(k.kind, "SLOPE", k.a, k.b, k.c, k.d));
        const testing::GdalTable table = testing::ReadWithGdal(folder.File("parcels.shp"));
        ASSERT_EQ(table.rows.size(), rows.size());
        for (std::size_t i = 0; i < table.rows.size(); ++i) {
            const Value& x = table.rows[i][0];
            ASSERT_EQ(table.rows[i][2],
                      IsNull(x) ? (k.kind == criterion::Singleton ? Value(1.0) : Value{})
                                : Value(testing::Stored(criterion::Membership(
                                      k.kind, std::get<double>(x), k.a, k.b, k.c, k.d))))
                << i;
        }
    }
    // A text that fails fails wherever it first comes.
    EXPECT_EQ(Thrown([&] { calculate("Val = 1 / ([SLOPE] - 50)"); }).Number(),
              error_number::kDivisionByZero);
}

} // namespace
} // namespace quorel::host::shapefile
