#include "fzy/FzyFormat.h"

#include "util/CodePage.h"
#include "util/Error.h"

#include <algorithm>
#include <bit>
#include <cstring>
#include <limits>

namespace quorel::fzy {
namespace {

constexpr const char* kSource = "IO_fzyext";

[[noreturn]] void ThrowPastEnd() {
    throw Error(error_number::kInputPastEnd, kSource, "Input past end of file");
}

[[noreturn]] void ThrowOverflow() {
    throw Error(error_number::kOverflow, kSource, "Overflow");
}

[[noreturn]] void ThrowBadLength() {
    throw Error(error_number::kBadRecordLength, kSource, "Bad record length");
}

std::vector<std::uint8_t> Int16Bytes(std::int16_t value) {
    const auto bits = static_cast<std::uint16_t>(value);
    return {static_cast<std::uint8_t>(bits & 0xFF), static_cast<std::uint8_t>(bits >> 8)};
}

std::vector<std::uint8_t> DoubleBytes(double value) {
    const auto bits = std::bit_cast<std::uint64_t>(value);
    std::vector<std::uint8_t> bytes(8);
    for (std::size_t i = 0; i < 8; ++i) {
        bytes[i] = static_cast<std::uint8_t>(bits >> (8 * i));
    }
    return bytes;
}

std::vector<std::uint8_t> TextBytes(const std::string& utf8) {
    const std::string ansi = util::Utf8ToWindows1252(utf8);
    if (ansi.size() > static_cast<std::size_t>(std::numeric_limits<std::int16_t>::max())) {
        ThrowOverflow();
    }
    // The text first, then the length put in front: inserting the text after the two length
    // bytes made GCC 12 at -O3 see a copy past their end (-Warray-bounds).
    std::vector<std::uint8_t> bytes(ansi.begin(), ansi.end());
    const std::vector<std::uint8_t> length = Int16Bytes(static_cast<std::int16_t>(ansi.size()));
    bytes.insert(bytes.begin(), length.begin(), length.end());
    return bytes;
}

void SetLength(std::vector<std::uint8_t>& entry) {
    if (entry.size() > static_cast<std::size_t>(std::numeric_limits<std::int16_t>::max())) {
        ThrowOverflow();
    }
    const auto length = Int16Bytes(static_cast<std::int16_t>(entry.size()));
    entry[0] = length[0];
    entry[1] = length[1];
}

} // namespace

void MemorySource::Read(std::int64_t offset, std::span<std::uint8_t> out) const {
    const auto size = static_cast<std::int64_t>(m_bytes.size());
    const auto count = static_cast<std::int64_t>(out.size());
    if (offset < 0 || offset > size || count > size - offset) {
        ThrowPastEnd();
    }
    if (count > 0) {
        std::memcpy(out.data(), m_bytes.data() + offset, out.size());
    }
}

ByteReader::ByteReader(const IByteSource& source, std::int64_t offset, bool sixteenBit)
    : m_source(source), m_offset(offset), m_sixteenBit(sixteenBit) {}

void ByteReader::Advance(std::int64_t count) {
    m_offset += count;
    if (m_sixteenBit && m_offset > std::numeric_limits<std::int16_t>::max()) {
        ThrowOverflow();
    }
}

std::int16_t ByteReader::ReadInt16() {
    std::uint8_t bytes[2];
    m_source.Read(m_offset, bytes);
    Advance(2);
    return static_cast<std::int16_t>(bytes[0] | (bytes[1] << 8));
}

double ByteReader::ReadDouble() {
    std::uint8_t bytes[8];
    m_source.Read(m_offset, bytes);
    Advance(8);
    std::uint64_t bits = 0;
    for (std::size_t i = 0; i < 8; ++i) {
        bits |= static_cast<std::uint64_t>(bytes[i]) << (8 * i);
    }
    return std::bit_cast<double>(bits);
}

std::int16_t ByteReader::ReadTextLength() {
    const std::int16_t count = ReadInt16();
    if (count < 0) {
        ThrowBadLength();
    }
    return count;
}

std::string ByteReader::ReadTextBytes(std::int16_t count) {
    if (count < 0) {
        ThrowBadLength();
    }
    std::string bytes(static_cast<std::size_t>(count), '\0');
    m_source.Read(m_offset, std::span(reinterpret_cast<std::uint8_t*>(bytes.data()), bytes.size()));
    Advance(count);
    return util::Windows1252ToUtf8(bytes);
}

std::string ByteReader::ReadText() {
    return ReadTextBytes(ReadTextLength());
}

std::vector<std::uint8_t> ByteReader::ReadBytes(std::int64_t count) {
    if (count < 0) {
        ThrowBadLength();
    }
    // Check first, so that a lying count never makes us allocate for bytes that are not there.
    std::uint8_t probe[1];
    if (count > 0) {
        m_source.Read(m_offset + count - 1, probe);
    }
    std::vector<std::uint8_t> bytes(static_cast<std::size_t>(count));
    m_source.Read(m_offset, bytes);
    Advance(count);
    return bytes;
}

void ByteWriter::WriteInt16(std::int16_t value) {
    WriteBytes(Int16Bytes(value));
}

void ByteWriter::WriteDouble(double value) {
    WriteBytes(DoubleBytes(value));
}

void ByteWriter::WriteText(const std::string& utf8) {
    WriteBytes(TextBytes(utf8));
}

void ByteWriter::WriteBytes(std::span<const std::uint8_t> bytes) {
    m_bytes.insert(m_bytes.end(), bytes.begin(), bytes.end());
}

FzyHeader ReadHeader(const IByteSource& source) {
    ByteReader reader(source, 0);
    FzyHeader header;
    header.Version = reader.ReadInt16();
    header.RecordCount = reader.ReadInt16();
    header.NumberCount = reader.ReadInt16();
    header.DeletedCount = reader.ReadInt16();
    const auto reserved = reader.ReadBytes(static_cast<std::int64_t>(header.Reserved.size()));
    std::copy(reserved.begin(), reserved.end(), header.Reserved.begin());
    return header;
}

std::vector<std::uint8_t> EncodeHeader(const FzyHeader& header) {
    ByteWriter writer;
    writer.WriteInt16(header.Version);
    writer.WriteInt16(header.RecordCount);
    writer.WriteInt16(header.NumberCount);
    writer.WriteInt16(header.DeletedCount);
    writer.WriteBytes(header.Reserved);
    return writer.Bytes();
}

FzyEntryFrame ReadFrame(ByteReader& reader) {
    FzyEntryFrame frame;
    frame.Length = reader.ReadInt16();
    frame.EntryKind = reader.ReadInt16();
    if (frame.Length < kFrameSize) {
        ThrowBadLength();
    }
    return frame;
}

namespace {

// Reads the fields one after the other, telling the visit after each, until it says stop.
class BodyDecoder {
public:
    BodyDecoder(ByteReader& reader, const FzyFieldVisit& visit)
        : m_reader(reader), m_visit(visit) {}

    void Text(const char* name, std::string& value) {
        if (!m_reading) {
            return;
        }
        const std::int16_t length = m_reader.ReadTextLength();
        if (!Tell({name, FzyFieldType::Text, true})) {
            return;
        }
        value = m_reader.ReadTextBytes(length);
        Tell({name, FzyFieldType::Text, false, &value});
    }
    void Int16(const char* name, std::int16_t& value) {
        if (m_reading) {
            value = m_reader.ReadInt16();
            Tell({name, FzyFieldType::Int16, false, nullptr, static_cast<double>(value)});
        }
    }
    void Double(const char* name, double& value, FzyFieldType type = FzyFieldType::Double) {
        if (m_reading) {
            value = m_reader.ReadDouble();
            Tell({name, type, false, nullptr, value});
        }
    }

private:
    bool Tell(const FzyFieldRead& field) {
        m_reading = !m_visit || m_visit(field);
        return m_reading;
    }

    ByteReader& m_reader;
    const FzyFieldVisit& m_visit;
    bool m_reading = true;
};

} // namespace

NumberEntry ReadNumberBody(ByteReader& reader, const FzyFieldVisit& visit) {
    NumberEntry entry;
    BodyDecoder read(reader, visit);
    read.Text("FieldName", entry.FieldName);
    read.Int16("NumberKind", entry.NumberKind);
    read.Text("AliasName", entry.AliasName);
    read.Double("A", entry.A);
    read.Double("B", entry.B);
    read.Double("C", entry.C);
    read.Double("D", entry.D);
    read.Text("Folder", entry.Folder);
    read.Text("ShapeName", entry.ShapeName);
    read.Double("Created", entry.Created, FzyFieldType::Date);
    read.Int16("EndMark", entry.EndMark);
    return entry;
}

RecordEntry ReadRecordBody(ByteReader& reader, const FzyFieldVisit& visit) {
    RecordEntry entry;
    BodyDecoder read(reader, visit);
    read.Text("FieldName", entry.FieldName);
    read.Int16("Code", entry.Code);
    read.Text("AliasName", entry.AliasName);
    read.Text("Text3", entry.Text3);
    read.Text("Text4", entry.Text4);
    read.Text("Field1", entry.Field1);
    read.Text("Folder1", entry.Folder1);
    read.Text("Shape1", entry.Shape1);
    read.Text("Field2", entry.Field2);
    read.Text("Folder2", entry.Folder2);
    read.Text("Shape2", entry.Shape2);
    read.Double("Created", entry.Created, FzyFieldType::Date);
    return entry;
}

std::vector<std::vector<std::uint8_t>> NumberBodyPieces(const NumberEntry& entry) {
    return {TextBytes(entry.FieldName), Int16Bytes(entry.NumberKind), TextBytes(entry.AliasName),
            DoubleBytes(entry.A),       DoubleBytes(entry.B),         DoubleBytes(entry.C),
            DoubleBytes(entry.D),       TextBytes(entry.Folder),      TextBytes(entry.ShapeName),
            DoubleBytes(entry.Created), Int16Bytes(entry.EndMark)};
}

std::vector<std::uint8_t> EncodeNumberEntry(const NumberEntry& entry) {
    ByteWriter writer;
    writer.WriteInt16(2);
    writer.WriteInt16(kNumberEntryKind);
    for (const auto& piece : NumberBodyPieces(entry)) {
        writer.WriteBytes(piece);
    }
    auto bytes = writer.Bytes();
    SetLength(bytes);
    return bytes;
}

std::vector<std::uint8_t> EncodeRecordEntry(const RecordEntry& entry) {
    ByteWriter writer;
    writer.WriteInt16(2);
    writer.WriteInt16(kRecordEntryKind);
    writer.WriteText(entry.FieldName);
    writer.WriteInt16(entry.Code);
    for (const auto* text :
         {&entry.AliasName, &entry.Text3, &entry.Text4, &entry.Field1, &entry.Folder1,
          &entry.Shape1, &entry.Field2, &entry.Folder2, &entry.Shape2}) {
        writer.WriteText(*text);
    }
    writer.WriteDouble(entry.Created);
    auto bytes = writer.Bytes();
    SetLength(bytes);
    return bytes;
}

std::int64_t NumberEntryLength(const NumberEntry& entry) {
    std::int64_t length = kFrameSize;
    for (const auto& piece : NumberBodyPieces(entry)) {
        length += static_cast<std::int64_t>(piece.size());
    }
    return length;
}

bool CodePageHolds(const std::string& utf8) {
    return util::Windows1252ToUtf8(util::Utf8ToWindows1252(utf8)) == utf8;
}

bool SameStoredName(const std::string& tableName, const std::string& storedName) {
    if (tableName == storedName) {
        return true;
    }
    // ASCII names are their own code-page forms: spare the conversions.
    const auto ascii = [](const std::string& name) {
        return std::all_of(name.begin(), name.end(),
                           [](char c) { return static_cast<unsigned char>(c) < 0x80; });
    };
    if (ascii(tableName) && ascii(storedName)) {
        return false;
    }
    return util::Utf8ToWindows1252(tableName) == util::Utf8ToWindows1252(storedName);
}

bool IsLiveKind(std::int16_t kind) {
    return kind < kFirstDeletedKind;
}

std::int16_t EntriesToWalk(std::int16_t recordCount, std::int16_t numberCount) {
    return Add16(recordCount, numberCount);
}

std::int16_t Add16(std::int64_t a, std::int64_t b) {
    const std::int64_t sum = a + b;
    if (sum > std::numeric_limits<std::int16_t>::max() ||
        sum < std::numeric_limits<std::int16_t>::min()) {
        ThrowOverflow();
    }
    return static_cast<std::int16_t>(sum);
}

} // namespace quorel::fzy
