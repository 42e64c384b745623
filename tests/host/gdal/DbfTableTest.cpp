#include "host/gdal/DbfTable.h"

#include "tests/host/gdal/TestShapefiles.h"
#include "util/Error.h"

#include <gtest/gtest.h>

#include <cmath>
#include <fstream>
#include <limits>

namespace quorel::host::gdal {
namespace {

using testing::GdalTable;
using testing::ReadBytes;
using testing::ReadWithGdal;
using testing::ScratchFolder;

struct FormatCase {
    std::optional<double> value;
    std::uint8_t length;
    std::uint8_t decimals;
    std::optional<std::string> text; // nullopt: does not fit
};

class DbfNumberFormatTest : public ::testing::TestWithParam<FormatCase> {};

TEST_P(DbfNumberFormatTest, fillsTheFixedWidthOrRefuses) {
    const FormatCase& c = GetParam();
    DbfField field;
    field.length = c.length;
    field.decimals = c.decimals;
    std::string buffer(c.length, '#');
    const bool fits = FormatDbfNumber(c.value, field, buffer.data());
    ASSERT_EQ(fits, c.text.has_value());
    if (fits) {
        EXPECT_EQ(buffer, *c.text);
    }
}

INSTANTIATE_TEST_SUITE_P(
    Widths, DbfNumberFormatTest,
    ::testing::Values(FormatCase{0.5, 19, 11, "      0.50000000000"},
                      FormatCase{1.0, 19, 11, "      1.00000000000"},
                      FormatCase{-0.25, 19, 11, "     -0.25000000000"},
                      FormatCase{1.0 / 3.0, 19, 11, "      0.33333333333"},
                      // Too wide for 11 decimals: as many as fit.
                      FormatCase{12345678.5, 19, 11, "12345678.5000000000"},
                      FormatCase{1e300, 19, 11, "1.000000000000e+300"},
                      FormatCase{std::nullopt, 19, 11, "*******************"},
                      FormatCase{std::numeric_limits<double>::quiet_NaN(), 5, 0, "*****"},
                      FormatCase{42.0, 4, 0, "  42"}, FormatCase{123456.0, 4, 0, std::nullopt}));

struct ParseCase {
    std::string text;
    std::optional<double> value;
};

class DbfNumberParseTest : public ::testing::TestWithParam<ParseCase> {};

TEST_P(DbfNumberParseTest, readsBlankPaddedNumbersAndNulls) {
    EXPECT_EQ(ParseDbfNumber(GetParam().text), GetParam().value);
}

INSTANTIATE_TEST_SUITE_P(Texts, DbfNumberParseTest,
                         ::testing::Values(ParseCase{"   12.5", 12.5}, ParseCase{"-0.5 ", -0.5},
                                           ParseCase{"+3", 3.0}, ParseCase{"1.5e3", 1500.0},
                                           ParseCase{"", std::nullopt},
                                           ParseCase{"      ", std::nullopt},
                                           ParseCase{"*****", std::nullopt},
                                           ParseCase{"12abc", std::nullopt}));

class DbfAddFieldTest : public ::testing::Test {
protected:
    void SetUp() override {
        testing::MakeShapefile(m_folder.Path(), "parcels",
                               {{"POP", 'N', 9, 0}, {"NAME", 'C', 10, 0}},
                               {{1200.0, std::string("Amont")},
                                {host::Value{}, std::string("Aval")},
                                {35.0, std::string("Crête")}});
        m_shp = m_folder.File("parcels.shp");
        m_dbf = m_folder.File("parcels.dbf");
    }

    ScratchFolder m_folder;
    std::string m_shp;
    std::string m_dbf;
};

TEST_F(DbfAddFieldTest, addsANullDoubleColumnAndKeepsEverythingElse) {
    const std::string shp = ReadBytes(m_shp);
    const std::string shx = ReadBytes(m_folder.File("parcels.shx"));
    const std::string cpg = ReadBytes(m_folder.File("parcels.cpg"));
    const GdalTable before = ReadWithGdal(m_shp);

    AddDbfField(m_dbf, "FZY_POP", 'N', 19, 11);

    const GdalTable after = ReadWithGdal(m_shp);
    EXPECT_EQ(after.featureCount, 3);
    ASSERT_EQ(after.fields.size(), 3u);
    EXPECT_EQ(after.fields[2].name, "FZY_POP");
    EXPECT_EQ(after.fields[2].type, "Real");
    EXPECT_EQ(after.fields[2].width, 19);
    EXPECT_EQ(after.fields[2].precision, 11);
    for (std::size_t r = 0; r < 3; ++r) {
        EXPECT_EQ(after.rows[r][0], before.rows[r][0]);
        EXPECT_EQ(after.rows[r][1], before.rows[r][1]);
        EXPECT_TRUE(IsNull(after.rows[r][2]));
        EXPECT_TRUE(after.geometryIsSet[r]);
    }
    EXPECT_EQ(ReadBytes(m_shp), shp);
    EXPECT_EQ(ReadBytes(m_folder.File("parcels.shx")), shx);
    EXPECT_EQ(ReadBytes(m_folder.File("parcels.cpg")), cpg);
    EXPECT_FALSE(testing::FileExists(m_dbf + ".quorel-tmp"));

    // The header's counts and lengths describe the file exactly.
    const DbfHeader header = ReadDbfHeader(m_dbf);
    EXPECT_EQ(header.recordCount, 3u);
    EXPECT_EQ(header.headerLength, 32u + 32u * 3u + 1u);
    EXPECT_EQ(header.recordLength, 1u + 9u + 10u + 19u);
    EXPECT_EQ(ReadBytes(m_dbf).size(), header.headerLength + 3u * header.recordLength + 1u);
}

class DbfEncodingTest : public ::testing::TestWithParam<std::string> {};

TEST_P(DbfEncodingTest, writesTheNewNameInTheTablesCodePage) {
    ScratchFolder folder;
    testing::MakeShapefile(folder.Path(), "t", {{"X", 'N', 5, 0}}, {{1.0}}, GetParam());
    AddDbfField(folder.File("t.dbf"), "PENTE_É", 'N', 19, 11);
    const GdalTable table = ReadWithGdal(folder.File("t.shp"));
    ASSERT_EQ(table.fields.size(), 2u);
    EXPECT_EQ(table.fields[1].name, "PENTE_É");
    EXPECT_EQ(ReadDbfHeader(folder.File("t.dbf")).fields[1].name, "PENTE_É");
}

INSTANTIATE_TEST_SUITE_P(CodePages, DbfEncodingTest, ::testing::Values("UTF-8", "ISO-8859-1"));

struct RefusedName {
    std::string name;
    std::string description;
};

class DbfRefusedNameTest : public DbfAddFieldTest,
                           public ::testing::WithParamInterface<RefusedName> {};

TEST_P(DbfRefusedNameTest, leavesTheTableUntouched) {
    const std::string before = ReadBytes(m_dbf);
    try {
        AddDbfField(m_dbf, GetParam().name, 'N', 19, 11);
        FAIL() << "the name was accepted";
    } catch (const Error& e) {
        EXPECT_EQ(e.Description(), GetParam().description);
    }
    EXPECT_EQ(ReadBytes(m_dbf), before);
}

INSTANTIATE_TEST_SUITE_P(
    Names, DbfRefusedNameTest,
    ::testing::Values(
        RefusedName{"POP", "Field already exists: POP"},
        RefusedName{"name", "Field already exists: name"},
        RefusedName{"ABCDEFGHIJK",
                    "Invalid field name: ABCDEFGHIJK (a shapefile's field names have 1 to 10 "
                    "characters)"},
        RefusedName{"", "Invalid field name:  (a shapefile's field names have 1 to 10 "
                        "characters)"}));

TEST_F(DbfAddFieldTest, refusesATableShorterThanItsHeaderSays) {
    std::string bytes = ReadBytes(m_dbf);
    bytes.resize(bytes.size() - 20);
    { std::ofstream(m_dbf, std::ios::binary | std::ios::trunc) << bytes; }
    EXPECT_THROW(AddDbfField(m_dbf, "NEW", 'N', 19, 11), Error);
    EXPECT_EQ(ReadBytes(m_dbf), bytes);
}

TEST_F(DbfAddFieldTest, batchFileWritesRecordsBackInPlace) {
    AddDbfField(m_dbf, "OUT", 'N', 19, 11);
    {
        DbfBatchFile table(m_dbf, true);
        const DbfField out = table.Header().fields[2];
        while (table.Next()) {
            for (std::size_t r = 0; r < table.BatchSize(); ++r) {
                const double value = 0.25 * static_cast<double>(table.BatchFirstRecord() + r);
                ASSERT_TRUE(FormatDbfNumber(value, out, table.Record(r) + out.offset));
            }
            table.Write();
        }
    }
    const GdalTable table = ReadWithGdal(m_shp);
    ASSERT_EQ(table.rows.size(), 3u);
    for (std::size_t r = 0; r < 3; ++r) {
        EXPECT_EQ(table.rows[r][2], host::Value(0.25 * static_cast<double>(r)));
    }
}

} // namespace
} // namespace quorel::host::gdal
