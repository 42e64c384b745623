#include "host/shapefile/DbfTable.h"

#include "tests/host/shapefile/TestShapefiles.h"
#include "util/Error.h"
#include "util/FileReplacement.h"

#include "tests/support/Thrown.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <bit>
#include <charconv>
#include <cmath>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <limits>
#include <random>
#include <vector>

namespace quorel::host::shapefile {
namespace {

using quorel::test::Thrown;

using test::WriteBytes;
using testing::GdalTable;
using testing::ReadBytes;
using testing::ReadWithGdal;
using testing::ScratchFolder;

// What the quick way leaves to the general one (the differential test below covers the rest):
// too wide for 11 decimals, as many as fit; the exponent form; Null; too wide for anything.
TEST(DbfNumberTest, formattingFillsTheFixedWidthOrRefuses) {
    using Text = std::optional<std::string>; // nullopt: does not fit
    for (const auto& [value, length, decimals, text] :
         {std::tuple{std::optional(12345678.5), 19, 11, Text("12345678.5000000000")},
          std::tuple{std::optional(1e300), 19, 11, Text("1.000000000000e+300")},
          std::tuple{std::optional<double>(), 19, 11, Text("*******************")},
          std::tuple{std::optional(std::numeric_limits<double>::quiet_NaN()), 5, 0, Text("*****")},
          std::tuple{std::optional(42.0), 4, 0, Text("  42")},
          std::tuple{std::optional(123456.0), 4, 0, Text()}}) {
        DbfField field;
        field.length = static_cast<std::uint8_t>(length);
        field.decimals = static_cast<std::uint8_t>(decimals);
        std::string buffer(field.length, '#');
        ASSERT_EQ(FormatDbfNumber(value, field, buffer.data()), text.has_value())
            << text.value_or("(refused)");
        if (text) {
            EXPECT_EQ(buffer, *text);
        }
    }
}

// Numbers are read and written without the standard library's general routines where a quicker
// exact way exists; the results must stay those of from_chars and to_chars, to the last bit and
// the last digit, rounding ties included.
TEST(DbfNumberTest, formattingAgreesWithToCharsDigitForDigit) {
    std::mt19937_64 random(7);
    std::vector<double> values = {0.0,   -0.0, 1e-20, -1e-20, 0.5e-11, 1.5e-11, 2.5e-11,
                                  0.125, 1.0,  -1.0,  0.1,    1e7,     9e15,    1e17,
                                  -9e18, 42.0, -7.0,  1e18,   1e300};
    values.insert(values.end(),
                  {4503599627370495.5, 5e-324, 1.0 / 3, 2.0 / 3, 123456789.0, 0x1p53, 0x1p62});
    std::uniform_real_distribution<double> unit(0.0, 1.0);
    std::uniform_int_distribution<int> exponent(-30, 60);
    for (int i = 0; i < 20000; ++i) {
        const double x = unit(random) * std::pow(2.0, exponent(random));
        values.push_back(i % 3 == 0 ? -x : x);
        // Decimal ties: exact halves at the last printed decimal.
        values.push_back(std::ldexp(static_cast<double>(random() % 4096), -12));
    }
    // Widths around the quick way's limits: blanks in front from none to 39.
    for (const auto& [decimals, width] : std::vector<std::pair<int, std::uint8_t>>{
             {0, 40}, {2, 16}, {2, 40}, {11, 19}, {11, 24}, {11, 32}, {11, 40}, {18, 40}}) {
        DbfField field;
        field.length = width;
        field.decimals = static_cast<std::uint8_t>(decimals);
        for (const double value : values) {
            char expected[400];
            const auto end = std::to_chars(expected, expected + sizeof expected, value,
                                           std::chars_format::fixed, decimals);
            const std::string text(expected, end.ptr);
            if (text.size() > field.length) {
                continue;
            }
            std::string buffer(field.length, '#');
            ASSERT_TRUE(FormatDbfNumber(value, field, buffer.data()));
            ASSERT_EQ(buffer, std::string(field.length - text.size(), ' ') + text)
                << "value " << value << ", " << decimals << " decimals";
        }
    }
}

TEST(DbfNumberTest, parsingAgreesWithFromCharsBitForBit) {
    std::mt19937_64 random(11);
    std::vector<std::string> texts = {"0", "-0", "0.",    ".5",  "-.5", "5.",
                                      "-", ".",  "1.2.3", "1-2", "- 1"};
    texts.insert(texts.end(), {"123456789012345", "1234567890123456", "0.000000000000001",
                               "9007199254740993", "99999999.9999999"});
    for (int i = 0; i < 20000; ++i) {
        const int digits = 1 + static_cast<int>(random() % 17);
        std::string text = random() % 4 == 0 ? "-" : "";
        const int point = static_cast<int>(random() % (digits + 1));
        for (int d = 0; d < digits; ++d) {
            if (d == point) {
                text += '.';
            }
            text += static_cast<char>('0' + random() % 10);
        }
        texts.push_back(text);
    }
    // Short fields, blank-padded in front as tables write them, with stray characters too.
    const std::string alphabet = "0123456789.- +*e";
    for (int i = 0; i < 20000; ++i) {
        const std::size_t width = 1 + random() % 8;
        std::string text;
        const std::size_t length = 1 + random() % width;
        for (std::size_t c = 0; c < length; ++c) {
            text += random() % 5 == 0 ? alphabet[random() % alphabet.size()]
                                      : static_cast<char>('0' + random() % 10);
        }
        texts.push_back(std::string(width - length, ' ') + text);
    }
    for (const std::string& text : texts) {
        double expected = 0;
        std::string_view trimmed = text;
        while (!trimmed.empty() && trimmed.front() == ' ') {
            trimmed.remove_prefix(1);
        }
        while (!trimmed.empty() && trimmed.back() == ' ') {
            trimmed.remove_suffix(1);
        }
        if (!trimmed.empty() && trimmed.front() == '+') {
            trimmed.remove_prefix(1); // a plus sign is allowed, as in the tables of some writers
        }
        const auto result =
            std::from_chars(trimmed.data(), trimmed.data() + trimmed.size(), expected);
        const bool valid =
            result.ec == std::errc() && result.ptr == trimmed.data() + trimmed.size();
        const std::optional<double> parsed = ParseDbfNumber(text);
        ASSERT_EQ(parsed.has_value(), valid) << text;
        if (valid) {
            ASSERT_EQ(std::bit_cast<std::uint64_t>(*parsed), std::bit_cast<std::uint64_t>(expected))
                << text;
        }
    }
}

// The column reader takes a quicker way for values laid out as the field says; whatever the
// text, it must give what ParseDbfNumber gives, bit for bit, Null included.
TEST(DbfNumberTest, columnReaderAgreesWithTheGeneralReader) {
    std::mt19937_64 random(13);
    const std::string alphabet = "0123456789.- +*e\0";
    for (int layout = 0; layout < 300; ++layout) {
        DbfField field;
        field.length = static_cast<std::uint8_t>(1 + random() % 20);
        field.decimals = static_cast<std::uint8_t>(random() % (field.length + 1));
        field.offset = 1 + random() % 8; // the whole part read as a word or not
        const std::size_t recordLength = field.offset + field.length + 2;
        std::string records;
        const std::size_t count = 200;
        for (std::size_t r = 0; r < count; ++r) {
            std::string text;
            if (random() % 2 == 0) {
                // As a writer lays it out: printf's fixed form, right-aligned.
                // Degrees in [0, 1] one time in three, as the columns a combination reads.
                const double magnitude = std::pow(10.0, static_cast<double>(random() % 12));
                const double value =
                    random() % 3 == 0
                        ? static_cast<double>(random() % 1000001) / 1e6
                        : (static_cast<double>(random() % 2000001) - 1e6) / 1e6 * magnitude;
                char buffer[64];
                std::snprintf(buffer, sizeof buffer, "%*.*f", field.length, field.decimals, value);
                text = buffer;
            }
            // Some garbled: a character replaced anywhere, or a field of another layout.
            if (text.size() != field.length || random() % 4 == 0) {
                text.resize(field.length, ' ');
                text[random() % field.length] = alphabet[random() % alphabet.size()];
            }
            records += std::string(field.offset, 'x') + text + "yy";
        }
        const DbfNumberReader reader(field);
        std::vector<double> values(count);
        std::vector<std::uint8_t> isNull(count);
        reader.Read(records.data(), recordLength, count, values.data(), isNull.data());
        for (std::size_t r = 0; r < count; ++r) {
            const char* record = records.data() + r * recordLength;
            const std::optional<double> expected = ParseDbfNumber(FieldBytes(record, field));
            const std::optional<double> one = reader(record);
            ASSERT_EQ(one.has_value(), expected.has_value()) << FieldBytes(record, field);
            ASSERT_EQ(isNull[r] == 0, expected.has_value()) << FieldBytes(record, field);
            if (expected) {
                ASSERT_EQ(std::bit_cast<std::uint64_t>(*one),
                          std::bit_cast<std::uint64_t>(*expected))
                    << FieldBytes(record, field);
                ASSERT_EQ(std::bit_cast<std::uint64_t>(values[r]),
                          std::bit_cast<std::uint64_t>(*expected))
                    << FieldBytes(record, field);
            }
        }
    }
}

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
    std::vector<std::vector<host::Value>> rows = before.rows;
    for (auto& row : rows) {
        row.emplace_back();
    }
    EXPECT_EQ(after.rows, rows);
    EXPECT_EQ(after.geometryIsSet, (std::vector<bool>(3, true)));
    EXPECT_EQ(ReadBytes(m_shp), shp);
    EXPECT_EQ(ReadBytes(m_folder.File("parcels.shx")), shx);
    EXPECT_EQ(ReadBytes(m_folder.File("parcels.cpg")), cpg);
    EXPECT_EQ(util::RemoveStaleReplacements(m_dbf), 0) << "a temporary left behind";
    // The header's lengths describe the file exactly.
    const DbfHeader header = ReadDbfHeader(m_dbf);
    EXPECT_EQ(ReadBytes(m_dbf).size(), header.headerLength + 3u * header.recordLength + 1u);
}

// Names the table cannot take, its own in another letter case among them: refused, the table
// untouched. (A name it has as written, or none, is every host's test; code pages the run's.)
TEST_F(DbfAddFieldTest, refusedNamesLeaveTheTableUntouched) {
    const std::string before = ReadBytes(m_dbf);
    const std::string tooLong = " (a shapefile's field names have 1 to 10 characters)";
    const std::vector<std::pair<std::string, std::string>> refused = {
        {"name", "Field already exists: name"},
        {"ABCDEFGHIJK", "Invalid field name: ABCDEFGHIJK" + tooLong}};
    for (const auto& [name, description] : refused) {
        EXPECT_EQ(Thrown([&] { AddDbfField(m_dbf, name, 'N', 19, 11); }).Description(),
                  description);
        EXPECT_EQ(ReadBytes(m_dbf), before);
    }
}

// Damaged tables: adding a field refuses each, naming it, and writes nothing. A header that
// counts fewer records than the file holds is among them: the rewrite would drop those behind.
TEST_F(DbfAddFieldTest, aDamagedTableIsRefusedAndLeftAsItWas) {
    const std::string whole = ReadBytes(m_dbf);
    // Shorter than its header says; counting one record of three; a header length too short;
    // fields longer than the records.
    for (const auto& damage :
         {+[](std::string& b) { b.resize(b.size() - 20); }, +[](std::string& b) { b[4] = 1; },
          +[](std::string& b) { b[8] = b[9] = 0; },
          +[](std::string& b) { b[10] = 2, b[11] = 0; }}) {
        std::string bytes = whole;
        damage(bytes);
        WriteBytes(m_dbf, bytes);
        const Error error = Thrown([&] { AddDbfField(m_dbf, "NEW", 'N', 19, 11); });
        EXPECT_EQ(error.Number(), error_number::kHostLayerDamaged);
        EXPECT_NE(error.Description().find(m_dbf + " is damaged"), std::string::npos)
            << error.Description();
        EXPECT_EQ(ReadBytes(m_dbf), bytes);
    }
}

} // namespace
} // namespace quorel::host::shapefile
