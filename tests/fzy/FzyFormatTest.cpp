#include "tests/fzy/FzyTestSupport.h"

#include "util/Error.h"

namespace quorel::fzy::test {
namespace {

TEST(FzyFormatTest, numberEntryOfTheWorkedExampleIs85Bytes) {
    NumberEntry entry = MakeNumber("FZY_PEN");
    entry.Folder = "/data/abcd";
    entry.ShapeName = "PARCE";
    const Bytes bytes = EncodeNumberEntry(entry);
    ASSERT_EQ(bytes.size(), 85u);
    EXPECT_EQ(Int16At(bytes, 0), 85);
    EXPECT_EQ(Int16At(bytes, 2), 2);
    EXPECT_EQ(Int16At(bytes, 4), 7);
    EXPECT_EQ(std::string(bytes.begin() + 6, bytes.begin() + 13), "FZY_PEN");
    EXPECT_EQ(Int16At(bytes, 83), 99);
}

TEST(FzyFormatTest, numberEntryWithEmptyTextsIs56Bytes) {
    NumberEntry entry;
    EXPECT_EQ(EncodeNumberEntry(entry).size(), 56u);
}

TEST(FzyFormatTest, headerIsTwentyThreeBytesLittleEndian) {
    FzyHeader header;
    header.RecordCount = 0x0102;
    header.NumberCount = -2;
    header.DeletedCount = 3;
    const Bytes expected = {1, 0, 2, 1, 0xFE, 0xFF, 3, 0, 0, 0, 0, 0,
                            0, 0, 0, 0, 0,    0,    0, 0, 0, 0, 0};
    EXPECT_EQ(EncodeHeader(header), expected);
    const Bytes bytes = EncodeHeader(header);
    const FzyHeader read = ReadHeader(MemorySource(bytes));
    EXPECT_EQ(read.RecordCount, 0x0102);
    EXPECT_EQ(read.NumberCount, -2);
    EXPECT_EQ(read.DeletedCount, 3);
}

TEST(FzyFormatTest, entriesReadBackFieldByField) {
    const NumberEntry number = MakeNumber("FZY_Pente_é", 45356.588298611);
    const Bytes numberBytes = EncodeNumberEntry(number);
    MemorySource numberSource(numberBytes);
    ByteReader numberReader(numberSource, 0);
    const FzyEntryFrame frame = ReadFrame(numberReader);
    EXPECT_EQ(frame.Length, static_cast<std::int16_t>(numberBytes.size()));
    const NumberEntry readNumber = ReadNumberBody(numberReader);
    EXPECT_EQ(readNumber.FieldName, number.FieldName);
    EXPECT_EQ(readNumber.Created, number.Created);
    EXPECT_EQ(readNumber.D, 4);
    EXPECT_EQ(numberReader.Offset(), frame.Length);

    const RecordEntry record = MakeRecord("REC");
    const Bytes recordBytes = EncodeRecordEntry(record);
    MemorySource recordSource(recordBytes);
    ByteReader recordReader(recordSource, 0);
    EXPECT_EQ(ReadFrame(recordReader).EntryKind, kRecordEntryKind);
    const RecordEntry readRecord = ReadRecordBody(recordReader);
    EXPECT_EQ(readRecord.Code, -7);
    EXPECT_EQ(readRecord.Folder1, "C:\\SIG\\data");
    EXPECT_EQ(readRecord.Shape2, "RELIEF");
    EXPECT_EQ(readRecord.Created, 45356.25);
}

TEST(FzyFormatTest, textsAreOneWindows1252BytePerCharacter) {
    ByteWriter writer;
    writer.WriteText("é€");
    const Bytes expected = {2, 0, 0xE9, 0x80};
    EXPECT_EQ(writer.Bytes(), expected);
}

// Every cut of a valid entry fails with "Input past end of file" and never reads outside.
class TruncatedEntryTest : public testing::TestWithParam<std::size_t> {};

TEST_P(TruncatedEntryTest, cutEntryIsInputPastEnd) {
    const Bytes whole = EncodeRecordEntry(MakeRecord("REC"));
    const std::size_t cut = GetParam() % whole.size();
    const Bytes part(whole.begin(), whole.begin() + static_cast<std::ptrdiff_t>(cut));
    MemorySource source(part);
    ByteReader reader(source, 0);
    try {
        ReadFrame(reader);
        ReadRecordBody(reader);
        FAIL() << "read " << cut << " bytes as a whole entry";
    } catch (const Error& e) {
        EXPECT_EQ(e.Number(), error_number::kInputPastEnd);
    }
}

INSTANTIATE_TEST_SUITE_P(Cuts, TruncatedEntryTest, testing::Range<std::size_t>(0, 120, 7));

struct BadFrameCase {
    Bytes bytes;
    std::int32_t number;
};

void PrintTo(const BadFrameCase& c, std::ostream* os) {
    *os << c.bytes.size() << " bytes, error " << c.number;
}

class BadFrameTest : public testing::TestWithParam<BadFrameCase> {};

TEST_P(BadFrameTest, liesEndInTheirError) {
    MemorySource source(GetParam().bytes);
    ByteReader reader(source, 0);
    try {
        ReadFrame(reader);
        ReadNumberBody(reader);
        FAIL() << "no error";
    } catch (const Error& e) {
        EXPECT_EQ(e.Number(), GetParam().number);
    }
}

INSTANTIATE_TEST_SUITE_P(
    Frames, BadFrameTest,
    testing::Values(BadFrameCase{{0, 0, 2, 0}, error_number::kBadRecordLength},       // zero Length
                    BadFrameCase{{0xFF, 0xFF, 2, 0}, error_number::kBadRecordLength}, // negative
                    BadFrameCase{{60, 0, 2, 0, 0xFF, 0x7F, 'A'}, error_number::kInputPastEnd},
                    BadFrameCase{{60, 0, 2, 0, 0xF0, 0xFF}, error_number::kBadRecordLength}));

TEST(FzyFormatTest, sixteenBitPositionsOverflowBeyond32767) {
    Bytes bytes(40000, 0);
    MemorySource source(bytes);
    ByteReader reader(source, 32766, true);
    try {
        reader.ReadDouble();
        FAIL() << "no overflow";
    } catch (const Error& e) {
        EXPECT_EQ(e.Number(), error_number::kOverflow);
    }
}

TEST(FzyFormatTest, walkedEntryCountIsSixteenBit) {
    EXPECT_EQ(EntriesToWalk(3, 4), 7);
    EXPECT_THROW(EntriesToWalk(30000, 30000), Error);
}

} // namespace
} // namespace quorel::fzy::test
