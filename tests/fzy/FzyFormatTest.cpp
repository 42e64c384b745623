#include "tests/fzy/FzyTestSupport.h"
#include "tests/support/Thrown.h"

#include "util/Error.h"

namespace quorel::fzy::test {
namespace {

using quorel::test::Thrown;

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

TEST(FzyFormatTest, textsAreOneWindows1252BytePerCharacter) {
    ByteWriter writer;
    writer.WriteText("é€");
    const Bytes expected = {2, 0, 0xE9, 0x80};
    EXPECT_EQ(writer.Bytes(), expected);
}

TEST(FzyFormatTest, sixteenBitPositionsOverflowBeyond32767) {
    Bytes bytes(40000, 0);
    MemorySource source(bytes);
    ByteReader reader(source, 32766, true);
    EXPECT_EQ(Thrown([&] { reader.ReadDouble(); }).Number(), error_number::kOverflow);
}

TEST(FzyFormatTest, walkedEntryCountIsSixteenBit) {
    EXPECT_EQ(EntriesToWalk(3, 4), 7);
    EXPECT_THROW(EntriesToWalk(30000, 30000), Error);
}

} // namespace
} // namespace quorel::fzy::test
