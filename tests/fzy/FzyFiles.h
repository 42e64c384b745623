#pragma once

// Metadata files made in memory, valid and damaged: for the tests and the fuzz target's seeds.

#include "fzy/FzyFormat.h"

#include <ostream>
#include <string>
#include <vector>

namespace quorel::fzy::test {

using Bytes = std::vector<std::uint8_t>;

// A whole file: header with the given counts, then the entries back to back.
inline Bytes MakeFile(std::int16_t recordCount, std::int16_t numberCount, std::int16_t deletedCount,
                      const std::vector<Bytes>& entries) {
    FzyHeader header;
    header.RecordCount = recordCount;
    header.NumberCount = numberCount;
    header.DeletedCount = deletedCount;
    Bytes file = EncodeHeader(header);
    for (const auto& entry : entries) {
        file.insert(file.end(), entry.begin(), entry.end());
    }
    return file;
}

inline NumberEntry MakeNumber(const std::string& field, double created = 45356.5) {
    NumberEntry entry;
    entry.FieldName = field;
    entry.NumberKind = 2;
    entry.AliasName = field;
    entry.A = 1;
    entry.B = 2;
    entry.C = 3;
    entry.D = 4;
    entry.Folder = "/data/sig";
    entry.ShapeName = "PARCELLES";
    entry.Created = created;
    return entry;
}

inline RecordEntry MakeRecord(const std::string& field) {
    RecordEntry entry;
    entry.FieldName = field;
    entry.Code = -7;
    entry.AliasName = field + "_alias";
    entry.Text3 = "hidden3";
    entry.Text4 = "hidden4";
    entry.Field1 = "SLOPE";
    entry.Folder1 = "C:\\SIG\\data";
    entry.Shape1 = "PARC";
    entry.Field2 = "ALTI";
    entry.Folder2 = "/data/sig";
    entry.Shape2 = "RELIEF";
    entry.Created = 45356.25;
    return entry;
}

inline Bytes WithKind(Bytes entry, std::int16_t kind) {
    entry[2] = static_cast<std::uint8_t>(kind & 0xFF);
    entry[3] = static_cast<std::uint8_t>((kind >> 8) & 0xFF);
    return entry;
}

inline std::int16_t Int16At(const Bytes& bytes, std::size_t offset) {
    return static_cast<std::int16_t>(bytes.at(offset) | (bytes.at(offset + 1) << 8));
}

// A damaged file, and the step at which each search reports it (0: the search skips the damage).
struct DamagedFzyFile {
    const char* name;
    Bytes file;
    int numberStep;
    int recordStep;
};

inline void PrintTo(const DamagedFzyFile& c, std::ostream* os) {
    *os << c.name;
}

inline Bytes WithLength(Bytes entry, std::int16_t length) {
    entry[0] = static_cast<std::uint8_t>(length & 0xFF);
    entry[1] = static_cast<std::uint8_t>((length >> 8) & 0xFF);
    return entry;
}

// The field name's length, first of the body.
inline Bytes WithNameLength(Bytes entry, std::uint8_t low, std::uint8_t high) {
    entry[4] = low;
    entry[5] = high;
    return entry;
}

inline Bytes CutBy(Bytes file, std::size_t bytes) {
    file.resize(file.size() - bytes);
    return file;
}

inline std::vector<DamagedFzyFile> DamagedFzyFiles() {
    const Bytes a = EncodeNumberEntry(MakeNumber("FZY_A"));
    const Bytes b = EncodeNumberEntry(MakeNumber("FZY_B"));
    const Bytes record = EncodeRecordEntry(MakeRecord("FZY_A"));
    return {
        {"zeroLength", MakeFile(0, 2, 0, {WithLength(a, 0), b}), 2, 2},
        {"negativeLength", MakeFile(0, 2, 0, {WithLength(a, -30), b}), 2, 2},
        {"lengthPastEnd", MakeFile(0, 2, 0, {WithLength(a, 4000), b}), 2, 2},
        {"countsLie", MakeFile(0, 5, 0, {a}), 2, 2},
        // A 4096-byte name in a short file, then a negative name length.
        {"textPastEnd", MakeFile(0, 1, 0, {WithNameLength(a, 0x00, 0x10)}), 3, 0},
        {"negativeTextLength", MakeFile(0, 1, 0, {WithNameLength(a, 0xF0, 0xFF)}), 3, 0},
        // Created and the end mark cut off; a record cut inside Field1.
        {"truncatedNumber", CutBy(MakeFile(0, 1, 0, {a}), 10), 5, 0},
        {"truncatedRecord", CutBy(MakeFile(1, 0, 0, {record}), 56), 0, 4},
    };
}

} // namespace quorel::fzy::test
