#include "host/shapefile/Shapefile.h"

#include "tests/host/shapefile/TestShapefiles.h"
#include "util/Error.h"

#include <fstream>

#include "tests/support/Thrown.h"
#include "tests/support/Unprivileged.h"

#include <gtest/gtest.h>

#include <filesystem>

namespace quorel::host::shapefile {
namespace {

using quorel::test::Thrown;

using testing::ScratchFolder;

class ShapefileTest : public ::testing::Test {
protected:
    void SetUp() override {
        testing::MakeShapefile(
            m_folder.Path(), "parcels",
            {{"SMALL", 'N', 4, 0}, {"POP", 'N', 9, 0}, {"SLOPE", 'N', 7, 2}, {"NAME", 'C', 10, 0}},
            {{1.0, 1200.0, 12.5, std::string("Amont")},
             {2.0, host::Value{}, 3.25, std::string("Aval")},
             {3.0, 35.0, host::Value{}, std::string("Crête")}});
    }

    std::shared_ptr<IFeatureClass> Open(const std::string& name = "parcels") {
        ShapefileWorkspaceFactory factory;
        return factory.OpenFromFile(m_folder.Path() + "/", 0)->OpenFeatureClass(name);
    }

    ScratchFolder m_folder;
};

// A point shapefile's type is the dialog tests' (it is not listed there).
TEST_F(ShapefileTest, knowsItsTypeAndNameAndListsObjectIdShapeThenTheColumnsWithHostTypes) {
    const auto featureClass = Open();
    EXPECT_EQ(featureClass->ShapeType(), kGeometryPolygon);
    EXPECT_EQ(featureClass->AliasName(), "parcels");
    EXPECT_EQ(featureClass->Workspace()->PathName(), m_folder.Path());
    const auto fields = featureClass->Fields();
    const std::vector<std::pair<std::string, std::int32_t>> expected = {
        {"FID", kFieldTypeOID},
        {"Shape", kFieldTypeGeometry},
        {"SMALL", kFieldTypeSmallInteger},
        {"POP", kFieldTypeInteger},
        {"SLOPE", kFieldTypeDouble},
        {"NAME", kFieldTypeString}};
    ASSERT_EQ(fields->FieldCount(), static_cast<std::int32_t>(expected.size()));
    for (std::size_t i = 0; i < expected.size(); ++i) {
        const auto field = fields->Field(static_cast<std::int32_t>(i));
        EXPECT_EQ(field->Name(), expected[i].first);
        EXPECT_EQ(field->AliasName(), expected[i].first);
        EXPECT_EQ(field->Type(), expected[i].second);
    }
}

TEST_F(ShapefileTest, cursorReadsValuesNullsAndRecordNumbers) {
    const auto featureClass = Open();
    const auto cursor = featureClass->Search(false);
    std::vector<std::shared_ptr<IRow>> kept;
    while (const auto row = cursor->NextRow()) {
        kept.push_back(row);
    }
    ASSERT_EQ(kept.size(), 3u);
    EXPECT_EQ(kept[0]->GetValue(0), Value(0.0));
    EXPECT_EQ(kept[0]->GetValue(3), Value(1200.0));
    EXPECT_TRUE(IsNull(kept[1]->GetValue(3)));
    EXPECT_EQ(kept[1]->GetValue(4), Value(3.25));
    EXPECT_TRUE(IsNull(kept[2]->GetValue(4)));
    EXPECT_EQ(kept[2]->GetValue(5), Value(std::string("Crête")));
    EXPECT_EQ(kept[2]->GetValue(0), Value(2.0));
}

TEST_F(ShapefileTest, cursorSkipsDeletedRecords) {
    // Mark the second record deleted, as dBASE does (GDAL repacks such tables on closing).
    const std::string dbf = m_folder.File("parcels.dbf");
    const DbfHeader header = ReadDbfHeader(dbf);
    {
        std::fstream file(dbf, std::ios::in | std::ios::out | std::ios::binary);
        file.seekp(header.headerLength + header.recordLength);
        file.put('*');
    }
    const auto cursor = Open()->Search(false);
    std::vector<Value> ids;
    while (const auto row = cursor->NextRow()) {
        ids.push_back(row->GetValue(0));
    }
    EXPECT_EQ(ids, (std::vector<Value>{0.0, 2.0}));
}

TEST_F(ShapefileTest, addFieldMakesADoubleN19_11AndRefusesHostNames) {
    const auto featureClass = Open();
    host::map::Field field("FZY_POP", kFieldTypeDouble);
    featureClass->AddField(field);
    // Listed at once; written at the latest when the records are read.
    EXPECT_EQ(featureClass->FindField("FZY_POP"), 6);
    ASSERT_TRUE(featureClass->Search(false)->NextRow());
    const DbfHeader header = ReadDbfHeader(m_folder.File("parcels.dbf"));
    ASSERT_EQ(header.fields.size(), 5u);
    EXPECT_EQ(header.fields[4].type, 'N');
    EXPECT_EQ(header.fields[4].length, 19);
    EXPECT_EQ(header.fields[4].decimals, 11);
    EXPECT_EQ(featureClass->FindField("FZY_POP"), 6);
    for (const char* name : {"FID", "Shape", "FZY_POP"}) {
        EXPECT_EQ(Thrown([&] {
                      featureClass->AddField(host::map::Field(name, kFieldTypeDouble));
                  }).Description(),
                  std::string("Field already exists: ") + name);
    }
}

TEST_F(ShapefileTest, aFieldNotYetWrittenIsWrittenNullWhenTheObjectEnds) {
    Open()->AddField(host::map::Field("LATER", kFieldTypeDouble));
    const testing::GdalTable table = testing::ReadWithGdal(m_folder.File("parcels.shp"));
    ASSERT_EQ(table.fields.size(), 5u);
    EXPECT_EQ(table.fields[4].name, "LATER");
    for (const auto& row : table.rows) {
        EXPECT_TRUE(IsNull(row[4]));
    }
}

// A field whose write failed stays pending and fails again rather than the class going on
// without it; when neither values nor Null could be written, the error says it is missing.
TEST_F(ShapefileTest, aFieldWhoseWriteFailedStaysPendingAndFailsAgain) {
    const auto featureClass = std::dynamic_pointer_cast<ShapefileFeatureClass>(Open());
    featureClass->AddField(host::map::Field("LATER", kFieldTypeDouble));
    const std::string dbf = m_folder.File("parcels.dbf");
    const std::string whole = testing::ReadBytes(dbf);
    const auto cut = [&] { test::WriteBytes(dbf, whole.substr(0, whole.size() - 9)); };
    cut(); // a table cut short takes no field
    EXPECT_THROW(featureClass->WritePendingField(), Error);
    EXPECT_THROW(featureClass->WritePendingField(), Error);
    EXPECT_TRUE(featureClass->IsFieldPending("LATER"));
    test::WriteBytes(dbf, whole);
    const Error e = Thrown([&] {
        featureClass->WritePendingField(
            [&](const DbfHeader&) -> std::unique_ptr<DbfColumnFiller> {
                cut(); // meanwhile, and the script fails
                throw Error(error_number::kDivisionByZero, "Script", "Division by zero");
            },
            {}, {});
    });
    EXPECT_NE(e.Description().find("LATER was not added"), std::string::npos) << e.Description();
    EXPECT_NE(e.Description().find("Division by zero"), std::string::npos) << e.Description();
    EXPECT_TRUE(featureClass->IsFieldPending("LATER"));
    test::WriteBytes(dbf, whole);
    featureClass->WritePendingField();
    EXPECT_EQ(testing::ReadWithGdal(m_folder.File("parcels.shp")).fields.back().name, "LATER");
}

TEST_F(ShapefileTest, openingFailuresSayWhatAndWhy) {
    const std::string missing = m_folder.File("nothere.shp");
    const Error e = Thrown([&] { Open("nothere"); });
    EXPECT_EQ(e.Number(), error_number::kFileNotFound);
    EXPECT_EQ(e.Description(), "Cannot open " + missing + ": no such file or directory");
    const std::string shx = m_folder.File("parcels.shx");
    std::filesystem::rename(shx, shx + ".away");
    EXPECT_EQ(Thrown([&] { Open(); }).Description(),
              "Cannot open " + shx + ": no such file or directory");
    std::filesystem::rename(shx + ".away", shx);
    const std::string shp = m_folder.File("parcels.shp");
    std::string bytes = testing::ReadBytes(shp);
    bytes[3] = 0; // the file code
    std::ofstream(shp, std::ios::binary | std::ios::trunc) << bytes;
    EXPECT_EQ(Thrown([&] { Open(); }).Description(), "Cannot open " + shp + ": not a shapefile");
    std::filesystem::remove(m_folder.File("parcels.dbf"));
    EXPECT_THROW(Open(), Error);
    ShapefileWorkspaceFactory factory;
    EXPECT_EQ(Thrown([&] { factory.OpenFromFile(m_folder.File("parcels.shp"), 0); }).Description(),
              "Cannot open the folder " + m_folder.File("parcels.shp") + ": not a directory");
}

TEST_F(ShapefileTest, unreadableShapefileIsReportedAsPermissionDenied) {
    const std::string shp = m_folder.File("parcels.shp");
    std::filesystem::permissions(shp, std::filesystem::perms::none);
    // Permissions bind root only through a child that gave root up; the child reports by status.
    const int status = test::RunUnprivileged([&] {
        try {
            Open();
        } catch (const Error& e) {
            return e.Number() == error_number::kPermissionDenied &&
                           e.Description() == "Cannot open " + shp + ": permission denied"
                       ? 0
                       : 2;
        }
        return 1;
    });
    EXPECT_EQ(status, 0) << "1: opened anyway, 2: another error";
}

} // namespace
} // namespace quorel::host::shapefile
