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

// Each field is printed as soon as it is read, so that a corrupt entry shows how far it went.
bool PrintField(std::ostream& out, const FzyFieldRead& field) {
    if (field.lengthOnly) {
        return true;
    }
    out << "  " << field.name << ": ";
    switch (field.type) {
    case FzyFieldType::Text:
        out << '"' << *field.text << '"';
        break;
    case FzyFieldType::Int16:
        out << static_cast<std::int16_t>(field.number);
        break;
    case FzyFieldType::Double:
        out << util::FormatNumber(field.number);
        break;
    case FzyFieldType::Date:
        out << DateText(field.number);
        break;
    }
    out << "\n";
    return true;
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
            ReadNumberBody(reader,
                           [&out](const FzyFieldRead& field) { return PrintField(out, field); });
        } else if (kind == kRecordEntryKind || kind == kRecordEntryKind + kDeletedKindStep) {
            ReadRecordBody(reader,
                           [&out](const FzyFieldRead& field) { return PrintField(out, field); });
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
