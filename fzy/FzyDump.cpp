#include "fzy/FzyDump.h"

#include "fzy/FzyFormat.h"
#include "util/AutomationDate.h"
#include "util/Error.h"
#include "util/NumberText.h"

#include <cstdio>

namespace quorel::fzy {
namespace {

std::string DateText(double value) {
    std::string text;
    try {
        text = util::FormatGeneralDate(value);
    } catch (const Error&) {
        text = "not a date";
    }
    return text + " (" + util::FormatRoundTrip(value) + ")";
}

std::string KindText(std::int16_t kind) {
    switch (kind) {
    case kRecordEntryKind:
        return "record, live";
    case kNumberEntryKind:
        return "number, live";
    case kRecordEntryKind + kDeletedKindStep:
        return "record, deleted";
    case kNumberEntryKind + kDeletedKindStep:
        return "number, deleted";
    default:
        return IsLiveKind(kind) ? "unknown, live" : "unknown, deleted";
    }
}

void PrintNumber(const NumberEntry& entry, std::ostream& out) {
    out << "  FieldName: \"" << entry.FieldName << "\"\n"
        << "  NumberKind: " << entry.NumberKind << "\n"
        << "  AliasName: \"" << entry.AliasName << "\"\n"
        << "  A: " << util::FormatNumber(entry.A) << "\n"
        << "  B: " << util::FormatNumber(entry.B) << "\n"
        << "  C: " << util::FormatNumber(entry.C) << "\n"
        << "  D: " << util::FormatNumber(entry.D) << "\n"
        << "  Folder: \"" << entry.Folder << "\"\n"
        << "  ShapeName: \"" << entry.ShapeName << "\"\n"
        << "  Created: " << DateText(entry.Created) << "\n"
        << "  EndMark: " << entry.EndMark << "\n";
}

void PrintRecord(const RecordEntry& entry, std::ostream& out) {
    out << "  FieldName: \"" << entry.FieldName << "\"\n"
        << "  Code: " << entry.Code << "\n"
        << "  AliasName: \"" << entry.AliasName << "\"\n"
        << "  Text3: \"" << entry.Text3 << "\"\n"
        << "  Text4: \"" << entry.Text4 << "\"\n"
        << "  Field1: \"" << entry.Field1 << "\"\n"
        << "  Folder1: \"" << entry.Folder1 << "\"\n"
        << "  Shape1: \"" << entry.Shape1 << "\"\n"
        << "  Field2: \"" << entry.Field2 << "\"\n"
        << "  Folder2: \"" << entry.Folder2 << "\"\n"
        << "  Shape2: \"" << entry.Shape2 << "\"\n"
        << "  Created: " << DateText(entry.Created) << "\n";
}

} // namespace

void DumpFzy(std::span<const std::uint8_t> bytes, std::ostream& out) {
    const auto size = static_cast<std::int64_t>(bytes.size());
    MemorySource source(bytes);
    out << "size: " << size << " bytes\n";
    ByteReader header(source, 0);
    out << "Version: " << header.ReadInt16() << "\n";
    const std::int16_t recordCount = header.ReadInt16();
    out << "RecordCount: " << recordCount << "\n";
    const std::int16_t numberCount = header.ReadInt16();
    out << "NumberCount: " << numberCount << "\n";
    out << "DeletedCount: " << header.ReadInt16() << "\n";
    if (size < kSmallestOldFile) {
        out << "no entries: a file shorter than " << kSmallestOldFile << " bytes is new\n";
        return;
    }
    out << "Reserved:";
    for (const std::uint8_t byte : header.ReadBytes(15)) {
        char hex[4];
        std::snprintf(hex, sizeof hex, " %02X", byte);
        out << hex;
    }
    out << "\n";

    const std::int16_t total = EntriesToWalk(recordCount, numberCount);
    std::int64_t position = kHeaderSize;
    for (std::int16_t i = 0; i < total; ++i) {
        ByteReader reader(source, position);
        out << "entry " << (i + 1) << " at offset " << position << ": ";
        const std::int16_t length = reader.ReadInt16();
        out << "length " << length << ", ";
        const std::int16_t kind = reader.ReadInt16();
        out << "kind " << kind << " (" << KindText(kind) << ")\n";
        if (length < kFrameSize) {
            throw Error(error_number::kBadRecordLength, "fzy dump",
                        "Bad record length " + std::to_string(length) + " at offset " +
                            std::to_string(position));
        }
        if (kind == kNumberEntryKind || kind == kNumberEntryKind + kDeletedKindStep) {
            PrintNumber(ReadNumberBody(reader), out);
        } else if (kind == kRecordEntryKind || kind == kRecordEntryKind + kDeletedKindStep) {
            PrintRecord(ReadRecordBody(reader), out);
        }
        if (reader.Offset() > position + length) {
            out << "  (the fields run " << reader.Offset() - position - length
                << " bytes past the entry's length)\n";
        }
        position += length;
    }
    if (position < size) {
        out << size - position << " bytes after the last counted entry are never read\n";
    } else if (position > size) {
        throw Error(error_number::kInputPastEnd, "fzy dump",
                    "The last entry ends at offset " + std::to_string(position) +
                        ", past the end of the file");
    }
}

} // namespace quorel::fzy
