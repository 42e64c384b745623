// The attribute table read on demand, page by page: any row reads as the table holds it; deleted
// records are no rows, and the rows keep their records' FIDs. (A bench times a million rows.)

#include "apps/quorel-host/AttributeTableModel.h"
#include "tests/support/ScratchFolder.h"

#include <gtest/gtest.h>

#include <charconv>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

namespace quorel::host_app {
namespace {

namespace fs = std::filesystem;

struct Column {
    const char* name;
    char type;
    std::uint8_t length;
    std::uint8_t decimals;
};

// ID N(9,0), DEGREE N(19,11) and NAME C(10), as (id, degree, name) of each record; a record
// whose name starts with '*' is written deleted.
const std::vector<Column> kColumns = {
    {"ID", 'N', 9, 0}, {"DEGREE", 'N', 19, 11}, {"NAME", 'C', 10, 0}};
constexpr std::size_t kRecordLength = 1 + 9 + 19 + 10;

void PutU16(std::string& bytes, std::size_t at, std::size_t value) {
    bytes[at] = static_cast<char>(value & 0xFF);
    bytes[at + 1] = static_cast<char>((value >> 8) & 0xFF);
}

template <typename Fill> void WriteTable(const fs::path& path, std::size_t count, Fill fill) {
    std::string header(32 + 32 * kColumns.size() + 1, '\0');
    header[0] = 0x03;
    for (int i = 0; i < 4; ++i) {
        header[4 + i] = static_cast<char>((count >> (8 * i)) & 0xFF);
    }
    PutU16(header, 8, header.size());
    PutU16(header, 10, kRecordLength);
    for (std::size_t c = 0; c < kColumns.size(); ++c) {
        char* descriptor = header.data() + 32 + 32 * c;
        std::snprintf(descriptor, 11, "%s", kColumns[c].name);
        descriptor[11] = kColumns[c].type;
        descriptor[16] = static_cast<char>(kColumns[c].length);
        descriptor[17] = static_cast<char>(kColumns[c].decimals);
    }
    header.back() = 0x0D;
    std::string records(count * kRecordLength, ' ');
    for (std::size_t r = 0; r < count; ++r) {
        fill(r, records.data() + r * kRecordLength);
    }
    std::ofstream out(path, std::ios::binary);
    out << header << records << '\x1A';
}

// Right-aligned, as tables lay numbers out.
void PutNumber(char* field, std::size_t width, std::string_view text) {
    std::copy(text.begin(), text.end(), field + width - text.size());
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
    WriteTable(path, 1000, [](std::size_t r, char* record) {
        char text[24];
        auto end = std::to_chars(text, text + sizeof text, r + 1).ptr;
        PutNumber(record + 1, 9, {text, static_cast<std::size_t>(end - text)});
        // The degree r mod 1000 thousandths, with its 11 decimals.
        std::snprintf(text, sizeof text, "%19.11f", static_cast<double>(r % 1000) / 1000);
        std::copy(text, text + 19, record + 10);
        end = std::to_chars(text, text + sizeof text, r % 97).ptr;
        record[29] = 'n';
        std::copy(text, end, record + 30);
    });
    AttributeTableModel model;
    model.SetTable(std::make_shared<TableReader>(path.string()));
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
    // Records 0 and 3 deleted; record 4 has no degree (blank, Null).
    WriteTable(path, 6, [](std::size_t r, char* record) {
        record[0] = r == 0 || r == 3 ? '*' : ' ';
        PutNumber(record + 1, 9, std::to_string(10 * r));
        if (r != 4) {
            PutNumber(record + 10, 19, "0.50000000000");
        }
        record[29] = static_cast<char>('a' + r);
    });
    AttributeTableModel model;
    model.SetTable(std::make_shared<TableReader>(path.string()));
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
