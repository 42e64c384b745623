#include "tests/fzy/FzyTestSupport.h"
#include "tests/support/Thrown.h"

#include "fzy/FzyDump.h"

#include "util/AutomationDate.h"
#include "util/Error.h"

namespace quorel::fzy::test {
namespace {

using quorel::test::Thrown;

using FzyOpenTest = FzyFixture;

TEST_F(FzyOpenTest, newNameGivesAnEightByteFileAndDropsShpInAnyLetterCase) {
    for (const std::string given : {"PARCELLES.shp", "PARCELLES.SHP"}) {
        fs::remove(FzyPath());
        std::string name = given;
        EXPECT_EQ(m_io.fzy_io_open(Folder(), name), 0);
        EXPECT_EQ(name, "PARCELLES");
        EXPECT_EQ(m_io.FileStatus(), "New");
        EXPECT_EQ(ReadBytes(FzyPath()), (Bytes{1, 0, 0, 0, 0, 0, 0, 0}));
        EXPECT_EQ(m_io.fzy_io_close(), 1);
    }
}

TEST_F(FzyOpenTest, shortFileIsNewAndOnlyItsFirstEightBytesAreRewritten) {
    Bytes old(23, 0xAB);
    WriteBytes(FzyPath(), old);
    Open();
    EXPECT_EQ(m_io.FileStatus(), "New");
    Bytes expected = old;
    std::fill(expected.begin(), expected.begin() + 8, 0);
    expected[0] = 1;
    EXPECT_EQ(ReadBytes(FzyPath()), expected);
}

using FzyAppendTest = FzyFixture;

TEST_F(FzyAppendTest, workedExampleIsByteExact) {
    Open();
    EXPECT_EQ(m_io.fzy_io_writenumber("FZY_PEN", "FZY_PEN", 2, 1, 2, 3, 4, "/data/abcd", "PARCE"),
              1);
    m_io.fzy_io_close();
    const Bytes file = ReadBytes(FzyPath());
    ASSERT_EQ(file.size(), 108u);
    EXPECT_EQ(Bytes(file.begin(), file.begin() + 8), (Bytes{1, 0, 0, 0, 1, 0, 0, 0}));
    EXPECT_EQ(Bytes(file.begin() + 8, file.begin() + 23), Bytes(15, 0));
    NumberEntry expected{"FZY_PEN", 2, "FZY_PEN",    1,       2,
                         3,         4, "/data/abcd", "PARCE", util::ToAutomationDate(m_now),
                         99};
    EXPECT_EQ(Bytes(file.begin() + 23, file.end()), EncodeNumberEntry(expected));
    // Length 85, kind 2, the name's length and bytes, and the end mark 99, little-endian.
    EXPECT_EQ(Bytes(file.begin() + 23, file.begin() + 36),
              (Bytes{85, 0, 2, 0, 7, 0, 'F', 'Z', 'Y', '_', 'P', 'E', 'N'}));
    EXPECT_EQ(Int16At(file, 106), 99);
}

TEST(FzyFormatTest, headerIsLittleEndianAndTextsOneWindows1252BytePerCharacter) {
    FzyHeader header;
    header.RecordCount = 0x0102;
    header.NumberCount = -2;
    header.DeletedCount = 3;
    EXPECT_EQ(EncodeHeader(header),
              (Bytes{1, 0, 2, 1, 0xFE, 0xFF, 3, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0}));
    ByteWriter writer;
    writer.WriteText("é€");
    EXPECT_EQ(writer.Bytes(), (Bytes{2, 0, 0xE9, 0x80}));
}

TEST(FzyFormatTest, positionsAndTheWalkedEntryCountAreSixteenBit) {
    Bytes bytes(40000, 0);
    MemorySource source(bytes);
    ByteReader reader(source, 32766, true);
    EXPECT_EQ(Thrown([&] { reader.ReadDouble(); }).Number(), error_number::kOverflow);
    EXPECT_EQ(EntriesToWalk(3, 4), 7);
    EXPECT_THROW(EntriesToWalk(30000, 30000), Error);
}

// The size limit: the cut entry is not counted, and the next append goes behind what it left.
TEST_F(FzyAppendTest, appendPastTheLimitFailsUncountedAndNextGoesBehindLeftovers) {
    const std::string longFolder(380, 'f');
    NumberEntry filler = MakeNumber("FZY_F");
    filler.Folder = std::string(32766 - 23 - 56 - 5 - 5 - 9 - 400, 'x');
    Bytes file = MakeFile(0, 1, 0, {EncodeNumberEntry(filler)});
    const std::size_t startSize = file.size(); // 400 bytes under the limit
    WriteBytes(FzyPath(), file);
    Open();
    EXPECT_EQ(Thrown([&] {
                  m_io.fzy_io_writenumber("FZY_BIG", "FZY_BIG", 2, 1, 2, 3, 4, longFolder,
                                          "PARCELLES");
              }).Number(),
              error_number::kOverflow);
    m_io.fzy_io_close();
    const Bytes afterFailure = ReadBytes(FzyPath());
    EXPECT_EQ(Int16At(afterFailure, 4), 1);
    EXPECT_GT(afterFailure.size(), startSize);
    EXPECT_LE(afterFailure.size(), static_cast<std::size_t>(kMaxFileSize));
    Open();
    m_io.fzy_io_writenumber("FZY_S", "FZY_S", 2, 1, 2, 3, 4, "/d", "P");
    m_io.fzy_io_close();
    const Bytes afterSecond = ReadBytes(FzyPath());
    EXPECT_EQ(Int16At(afterSecond, 4), 2);
    EXPECT_EQ(afterSecond.size(), afterFailure.size() + 56 + 5 + 5 + 2 + 1);
    EXPECT_EQ(Int16At(afterSecond, afterFailure.size() + 2), kNumberEntryKind);
}

TEST_F(FzyAppendTest, exactlyAtTheLimitSucceeds) {
    NumberEntry filler = MakeNumber("FZY_F");
    const std::size_t nextEntry = 56 + 5 + 5 + 2 + 1; // FZY_S twice, "/d", "P"
    filler.Folder = std::string(32766 - 23 - nextEntry - (56 + 5 + 5 + 9), 'x');
    WriteBytes(FzyPath(), MakeFile(0, 1, 0, {EncodeNumberEntry(filler)}));
    Open();
    EXPECT_FALSE(m_io.NumberEntryFits("FZY_S", "FZY_S", "/d", "PP"));
    EXPECT_TRUE(m_io.NumberEntryFits("FZY_S", "FZY_S", "/d", "P"));
    EXPECT_EQ(m_io.fzy_io_writenumber("FZY_S", "FZY_S", 2, 1, 2, 3, 4, "/d", "P"), 1);
    m_io.fzy_io_close();
    EXPECT_EQ(fs::file_size(FzyPath()), 32766u);
}

TEST_F(FzyAppendTest, noEntryFitsOnceTheCountsAreFull) {
    for (const auto& [records, numbers] :
         {std::pair<std::int16_t, std::int16_t>{0, 32767}, {16384, 16383}}) {
        Bytes file = MakeFile(records, numbers, 0, {});
        file.push_back(0); // an old file, the counts as its header says
        WriteBytes(FzyPath(), file);
        Open();
        EXPECT_FALSE(m_io.NumberEntryFits("FZY_S", "FZY_S", "/d", "P")) << records;
        m_io.fzy_io_close();
    }
}

using FzyDescriptionTest = FzyFixture;

// A Windows folder as it is and the later of two entries of one name: the meta command's tests.
TEST_F(FzyDescriptionTest, numberDescriptionLineByLine) {
    Open();
    m_io.fzy_io_writenumber("FZY_PEN", "FZY_PEN", 3, 2.5, 10, 1e14, 1e14, "/data/sig", "PARCELLES");
    EXPECT_TRUE(m_io.fzy_io_numberinfo("FZY_PEN"));
    EXPECT_EQ(m_io.NumberFound(), 1);
    ASSERT_TRUE(m_io.InfoText());
    const std::vector<std::string> expected = {
        "T147 FZY_PEN(T148 :FZY_PEN) T154 3 T154 :",
        " Val_a = 2.5",
        " Val_b = 10",
        " Val_c = 100000000000000",
        " Val_d = 100000000000000",
        "T152 /data/sig/PARCELLES T156 " + util::FormatGeneralDate(util::ToAutomationDate(m_now)),
    };
    EXPECT_EQ(SplitLines(*m_io.InfoText()), expected);
    EXPECT_TRUE(m_ui.boxes.empty());
}

TEST_F(FzyDescriptionTest, decimalMarkIsTheUsers) {
    Open();
    m_io.fzy_io_writenumber("FZY_PEN", "FZY_PEN", 1, 2.5, 2.5, 2.5, 2.5, "/d", "P");
    m_io.SetDecimalMark(',');
    ASSERT_TRUE(m_io.fzy_io_numberinfo("FZY_PEN"));
    EXPECT_EQ(SplitLines(*m_io.InfoText())[1], " Val_a = 2,5");
}

TEST_F(FzyDescriptionTest, recordDescriptionLineByLine) {
    WriteBytes(FzyPath(),
               MakeFile(2, 1, 0,
                        {EncodeNumberEntry(MakeNumber("REC")), EncodeRecordEntry(MakeRecord("R0")),
                         EncodeRecordEntry(MakeRecord("REC"))}));
    Open();
    EXPECT_FALSE(m_io.fzy_io_recordinfo("rec", ""));
    EXPECT_TRUE(m_io.fzy_io_recordinfo("REC", ""));
    const std::vector<std::string> expected = {
        "T147 REC (T148 :REC_alias) T149 : ", "SLOPE (T150 C:\\SIG\\data\\PARC)",  "T151 ",
        "ALTI (T150 /data/sig/RELIEF).",      " T152 -7 T156 05/03/2024 06:00:00",
    };
    EXPECT_EQ(SplitLines(*m_io.InfoText()), expected);
    EXPECT_EQ(m_io.RecordCount(), 2);
}

TEST_F(FzyDescriptionTest, deletedEntriesAreSkipped) {
    WriteBytes(FzyPath(), MakeFile(1, 1, 2,
                                   {WithKind(EncodeRecordEntry(MakeRecord("GONE")), 11),
                                    WithKind(EncodeNumberEntry(MakeNumber("GONE")), 12)}));
    Open();
    EXPECT_FALSE(m_io.fzy_io_numberinfo("GONE"));
    EXPECT_FALSE(m_io.fzy_io_recordinfo("GONE", ""));
    EXPECT_FALSE(m_io.InfoText());
    EXPECT_TRUE(m_ui.boxes.empty());
}

TEST_F(FzyDescriptionTest, namesAreComparedExactly) {
    WriteBytes(FzyPath(), MakeFile(0, 1, 0, {EncodeNumberEntry(MakeNumber("FZY_Pente"))}));
    Open();
    EXPECT_FALSE(m_io.fzy_io_numberinfo("FZY_PENTE"));
    EXPECT_TRUE(m_io.fzy_io_numberinfo("FZY_Pente"));
    // In the file's code page: what it could not hold was stored as '?'.
    WriteBytes(FzyPath(), MakeFile(0, 1, 0, {EncodeNumberEntry(MakeNumber("ŁÓDŹ"))}));
    Open();
    EXPECT_TRUE(m_io.fzy_io_numberinfo("ŁÓDŹ"));
}

// Damaged files: the dump refuses each, each search that meets the damage reports its step,
// and nothing is written.
class FzyDamagedFileTest : public FzyFixture, public testing::WithParamInterface<DamagedFzyFile> {};

TEST_P(FzyDamagedFileTest, readersReportTheDamageAndWriteNothing) {
    const DamagedFzyFile& c = GetParam();
    std::ostringstream dump;
    EXPECT_THROW(DumpFzy(c.file, dump), Error);
    WriteBytes(FzyPath(), c.file);
    Open();
    EXPECT_FALSE(m_io.fzy_io_numberinfo("FZY_A"));
    EXPECT_FALSE(m_io.fzy_io_recordinfo("FZY_A", ""));
    std::vector<std::string> expected;
    if (c.numberStep != 0) {
        expected.push_back(" fzy_io_numberinfo Debug=" + std::to_string(c.numberStep));
    }
    if (c.recordStep != 0) {
        expected.push_back(" fzy_io_recordinfo Debug=" + std::to_string(c.recordStep));
    }
    ASSERT_EQ(m_ui.boxes.size(), expected.size());
    for (std::size_t i = 0; i < expected.size(); ++i) {
        EXPECT_NE(m_ui.boxes[i].text.find(expected[i]), std::string::npos) << m_ui.boxes[i].text;
        EXPECT_EQ(m_ui.boxes[i].icon, util::MessageIcon::None);
        EXPECT_FALSE(m_ui.boxes[i].title);
    }
    m_io.fzy_io_close();
    EXPECT_EQ(ReadBytes(FzyPath()), c.file);
}

INSTANTIATE_TEST_SUITE_P(Files, FzyDamagedFileTest, testing::ValuesIn(DamagedFzyFiles()),
                         [](const auto& testInfo) { return std::string(testInfo.param.name); });

} // namespace
} // namespace quorel::fzy::test
