#pragma once

// The byte layout of the metadata file: the header, the entry frame and the two entry bodies.
// Texts are UTF-8 in memory and Windows-1252 on disk; dates are automation dates.

#include <array>
#include <cstdint>
#include <functional>
#include <span>
#include <string>
#include <vector>

namespace quorel::fzy {

inline constexpr std::int64_t kHeaderSize = 23;
// A file shorter than this holds no entry and is treated as new.
inline constexpr std::int64_t kSmallestOldFile = 24;
inline constexpr std::int64_t kFrameSize = 4;
// The file may not grow beyond this: its positions are 16-bit.
inline constexpr std::int64_t kMaxFileSize = 32766;
inline constexpr std::int16_t kRecordEntryKind = 1;
inline constexpr std::int16_t kNumberEntryKind = 2;
// Kinds from 6 up are deleted; deletion adds 10 to the live kind.
inline constexpr std::int16_t kFirstDeletedKind = 6;
inline constexpr std::int16_t kDeletedKindStep = 10;
inline constexpr std::int16_t kEndMark = 99;

struct FzyHeader {
    std::int16_t Version = 1;
    std::int16_t RecordCount = 0;
    std::int16_t NumberCount = 0;
    std::int16_t DeletedCount = 0;
    std::array<std::uint8_t, 15> Reserved{};
};

struct FzyEntryFrame {
    std::int16_t Length = 0;
    std::int16_t EntryKind = 0;
};

struct NumberEntry {
    std::string FieldName;
    std::int16_t NumberKind = 0;
    std::string AliasName;
    double A = 0;
    double B = 0;
    double C = 0;
    double D = 0;
    std::string Folder;
    std::string ShapeName;
    double Created = 0;
    std::int16_t EndMark = kEndMark;
};

struct RecordEntry {
    std::string FieldName;
    std::int16_t Code = 0;
    std::string AliasName;
    std::string Text3;
    std::string Text4;
    std::string Field1;
    std::string Folder1;
    std::string Shape1;
    std::string Field2;
    std::string Folder2;
    std::string Shape2;
    double Created = 0;
};

// Somewhere to read bytes from: memory or an open file. Read fills all of out or throws
// Error(kInputPastEnd); it never touches a byte outside its source.
class IByteSource {
public:
    virtual ~IByteSource() = default;
    virtual void Read(std::int64_t offset, std::span<std::uint8_t> out) const = 0;
};

class MemorySource final : public IByteSource {
public:
    explicit MemorySource(std::span<const std::uint8_t> bytes) : m_bytes(bytes) {}
    void Read(std::int64_t offset, std::span<std::uint8_t> out) const override;

private:
    std::span<const std::uint8_t> m_bytes;
};

// Reads the format's fields one after another from a position.
class ByteReader {
public:
    // With sixteenBit, a position beyond 32,767 is an overflow, as in the operations that
    // compute their positions in 16 bits.
    ByteReader(const IByteSource& source, std::int64_t offset, bool sixteenBit = false);

    std::int16_t ReadInt16();
    double ReadDouble();
    // An int16 count and that many Windows-1252 bytes; a negative count is a corrupt file.
    std::string ReadText();
    std::int16_t ReadTextLength();
    std::string ReadTextBytes(std::int16_t count);
    std::vector<std::uint8_t> ReadBytes(std::int64_t count);

    std::int64_t Offset() const { return m_offset; }

private:
    void Advance(std::int64_t count);

    const IByteSource& m_source;
    std::int64_t m_offset;
    bool m_sixteenBit;
};

// Appends the format's fields to a byte vector.
class ByteWriter {
public:
    void WriteInt16(std::int16_t value);
    void WriteDouble(double value);
    // Throws Error(kOverflow) for a text longer than 32,767 bytes once converted.
    void WriteText(const std::string& utf8);
    void WriteBytes(std::span<const std::uint8_t> bytes);

    const std::vector<std::uint8_t>& Bytes() const { return m_bytes; }

private:
    std::vector<std::uint8_t> m_bytes;
};

FzyHeader ReadHeader(const IByteSource& source);
std::vector<std::uint8_t> EncodeHeader(const FzyHeader& header);

// Reads Length and EntryKind; a Length below the frame's own 4 bytes is a corrupt file
// (Error(kBadRecordLength)): the walk could never move on.
FzyEntryFrame ReadFrame(ByteReader& reader);

// The one decoder of the entry bodies. It reads the fields in file order into the entry and
// tells `visit`, if given, after each: a text once its length is read (lengthOnly, no value
// yet) and again once read, any other field once read. When visit returns false the read stops
// there and the entry holds what was read; a damaged entry throws where its fields run out.
enum class FzyFieldType { Text, Int16, Double, Date };
struct FzyFieldRead {
    const char* name; // as the entry's member: "FieldName", "Folder", "Created"...
    FzyFieldType type;
    bool lengthOnly = false;
    const std::string* text = nullptr; // a text's value
    double number = 0;                 // the value of any other field
};
using FzyFieldVisit = std::function<bool(const FzyFieldRead& field)>;

NumberEntry ReadNumberBody(ByteReader& reader, const FzyFieldVisit& visit = {});
RecordEntry ReadRecordBody(ByteReader& reader, const FzyFieldVisit& visit = {});

// Whole entries, frame included, Length set to the true length.
std::vector<std::uint8_t> EncodeNumberEntry(const NumberEntry& entry);
std::vector<std::uint8_t> EncodeRecordEntry(const RecordEntry& entry);

// The fields of a number entry after the frame, each as its own piece, in order: the append
// writes them one by one so that the size limit stops it part-way as the format requires.
std::vector<std::vector<std::uint8_t>> NumberBodyPieces(const NumberEntry& entry);

// The length of a number entry, frame included: 56 bytes and its four texts.
std::int64_t NumberEntryLength(const NumberEntry& entry);

// Whether the file's code page holds every character of a text, so that it reads back as
// written.
bool CodePageHolds(const std::string& utf8);

// Whether a name read from the file is a table's field name. Names compare in the file's code
// page, exactly otherwise: a name stored with '?' for a character the code page lacks still
// finds its field.
bool SameStoredName(const std::string& tableName, const std::string& storedName);

bool IsLiveKind(std::int16_t kind);

// Sum of the two kind counts: the number of entries a walk covers. The sum is 16-bit, so two
// large counts overflow.
std::int16_t EntriesToWalk(std::int16_t recordCount, std::int16_t numberCount);

// Adds in 16 bits; Error(kOverflow) when the result does not fit.
std::int16_t Add16(std::int64_t a, std::int64_t b);

} // namespace quorel::fzy
