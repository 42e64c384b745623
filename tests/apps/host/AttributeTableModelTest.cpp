// The attribute table read on demand, page by page: any row reads as the table holds it; deleted
// records are no rows, and the rows keep their records' FIDs. (A bench times a million rows.)

#include "apps/quorel-host/AttributeTableModel.h"
#include "tests/support/ScratchFolder.h"
#include "tools/sample/PolygonShapefile.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <vector>

namespace quorel::host_app {
namespace {

namespace fs = std::filesystem;

// ID N(9,0), DEGREE N(19,11) and NAME C(10), each record's values filled by fill; the
// records listed in deleted are then flagged deleted.
void WriteTable(const fs::path& dbf, std::size_t count, const tools::RowFiller& fill,
                const std::vector<std::size_t>& deleted = {}) {
    fs::path shp = dbf;
    tools::WritePolygonShapefile(shp.replace_extension(".shp").string(),
                                 {{"ID", 'N', 9, 0}, {"DEGREE", 'N', 19, 11}, {"NAME", 'C', 10, 0}},
                                 count, fill);
    std::string bytes = test::ReadBytes(dbf);
    // The header's length at byte 8 and a record's at byte 10, both little-endian.
    const auto length = [&bytes](std::size_t at) {
        return static_cast<std::size_t>(static_cast<std::uint8_t>(bytes[at]) |
                                        static_cast<std::uint8_t>(bytes[at + 1]) << 8);
    };
    for (const std::size_t record : deleted) {
        bytes[length(8) + record * length(10)] = '*';
    }
    test::WriteBytes(dbf, bytes);
}

class AttributeTableModelTest : public ::testing::Test {
protected:
    static QString Cell(const AttributeTableModel& model, int row, int column) {
        return model.data(model.index(row, column), Qt::DisplayRole).toString();
    }

    test::ScratchFolder m_scratch;
    fs::path m_folder{m_scratch.Path()};
};

TEST_F(AttributeTableModelTest, anyRowReadsOnDemandAcrossPages) {
    const fs::path path = m_folder / "pages.dbf";
    WriteTable(path, 1000, [](std::size_t r, std::vector<host::Value>& values) {
        // The degree r mod 1000 thousandths.
        values = {static_cast<double>(r + 1), static_cast<double>(r % 1000) / 1000,
                  "n" + std::to_string(r % 97)};
    });
    AttributeTableModel model;
    model.SetTable(std::make_shared<DbfTableReader>(path.string()));
    ASSERT_EQ(model.rowCount(), 1000);
    ASSERT_EQ(model.columnCount(), 4);
    EXPECT_EQ(model.headerData(0, Qt::Horizontal, Qt::DisplayRole).toString(), "FID");
    EXPECT_EQ(model.headerData(2, Qt::Horizontal, Qt::DisplayRole).toString(), "DEGREE");
    for (const int row : {999, 0, 523, 255, 256}) { // pages of 256 rows
        SCOPED_TRACE(row);
        EXPECT_EQ(Cell(model, row, 0), QString::number(row));
        EXPECT_EQ(Cell(model, row, 1), QString::number(row + 1));
        EXPECT_EQ(Cell(model, row, 2).toDouble(), (row % 1000) / 1000.0);
        EXPECT_EQ(Cell(model, row, 3), QStringLiteral("n%1").arg(row % 97));
    }
}

TEST_F(AttributeTableModelTest, deletedRecordsAreNoRowsAndRowsKeepTheirRecordsFids) {
    const fs::path path = m_folder / "deleted.dbf";
    // Records 0 and 3 deleted; record 4 has no degree (Null).
    WriteTable(path, 6,
               [](std::size_t r, std::vector<host::Value>& values) {
                   values = {static_cast<double>(10 * r), r == 4 ? host::Value() : host::Value(0.5),
                             std::string(1, static_cast<char>('a' + r))};
               },
               {0, 3});
    AttributeTableModel model;
    model.SetTable(std::make_shared<DbfTableReader>(path.string()));
    ASSERT_EQ(model.rowCount(), 4);
    const std::vector<std::vector<QString>> expected = {{"1", "10", "0.5", "b"},
                                                        {"2", "20", "0.5", "c"},
                                                        {"4", "40", "", "e"},
                                                        {"5", "50", "0.5", "f"}};
    for (int row = 0; row < 4; ++row) {
        for (int column = 0; column < 4; ++column) {
            EXPECT_EQ(Cell(model, row, column), expected[row][column])
                << "row " << row << ", column " << column;
        }
    }

    // Selected FIDs find their rows past the deleted records; a deleted one shows nothing.
    model.SetSelection({0, 2, 5});
    model.SetSelectedOnly(true);
    ASSERT_EQ(model.rowCount(), 2);
    EXPECT_EQ(Cell(model, 0, 0), "2");
    EXPECT_EQ(Cell(model, 1, 3), "f");
    EXPECT_EQ(model.ModelRow(3), 1);
    EXPECT_EQ(model.ModelRow(2), std::nullopt);
}

} // namespace
} // namespace quorel::host_app
