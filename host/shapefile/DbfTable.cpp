// The table file of a shapefile: header, field descriptors, encoding, record count checks, the
// plan of a new column and the batch walk over the records.

#include "host/shapefile/DbfTable.h"

#include "host/shapefile/DbfFileBytes.h"
#include "util/CodePage.h"

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cstring>
#include <ctime>
#include <fcntl.h>
#include <fstream>
#include <sys/stat.h>
#include <unistd.h>

namespace quorel::host::shapefile {
namespace {

constexpr std::size_t kFileHeaderSize = 32;
constexpr std::size_t kDescriptorSize = 32;
constexpr char kHeaderTerminator = 0x0D;
constexpr std::size_t kMaxFieldCount = 255;
constexpr std::size_t kMaxRecordLength = 65535;

std::uint16_t ReadU16(const std::string& bytes, std::size_t at) {
    return static_cast<std::uint16_t>(static_cast<unsigned char>(bytes[at]) |
                                      static_cast<unsigned char>(bytes[at + 1]) << 8);
}

std::uint32_t ReadU32(const std::string& bytes, std::size_t at) {
    std::uint32_t value = 0;
    for (std::size_t i = 0; i < 4; ++i) {
        value |= static_cast<std::uint32_t>(static_cast<unsigned char>(bytes[at + i])) << (8 * i);
    }
    return value;
}

void WriteU16(std::string& bytes, std::size_t at, std::size_t value) {
    bytes[at] = static_cast<char>(value & 0xFF);
    bytes[at + 1] = static_cast<char>((value >> 8) & 0xFF);
}

std::string Lowercase(std::string text) {
    std::transform(text.begin(), text.end(), text.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    return text;
}

bool EqualIgnoringCase(const std::string& left, const std::string& right) {
    return Lowercase(left) == Lowercase(right);
}

} // namespace

Error DamagedTable(const std::string& path, const std::string& what) {
    return Error(error_number::kHostLayerDamaged, kDbfSource,
                 "The table " + path + " is damaged (" + what + ")");
}

// Reads exactly size bytes at offset, or throws.
void ReadExactly(int fd, char* destination, std::size_t size, off_t offset,
                 const std::string& path) {
    std::size_t done = 0;
    while (done < size) {
        const ssize_t got =
            ::pread(fd, destination + done, size - done, offset + static_cast<off_t>(done));
        if (got < 0 && errno == EINTR) {
            continue;
        }
        if (got < 0) {
            ThrowFileError(errno, "read", path);
        }
        if (got == 0) {
            throw DamagedTable(path, "it is shorter than its header says");
        }
        done += static_cast<std::size_t>(got);
    }
}

void WriteExactly(int fd, const char* source, std::size_t size, off_t offset,
                  const std::string& path) {
    std::size_t done = 0;
    while (done < size) {
        const ssize_t put =
            ::pwrite(fd, source + done, size - done, offset + static_cast<off_t>(done));
        if (put < 0 && errno == EINTR) {
            continue;
        }
        if (put < 0) {
            ThrowFileError(errno, "write", path);
        }
        done += static_cast<std::size_t>(put);
    }
}

void ThrowFileError(int errnoValue, const std::string& verb, const std::string& path) {
    const Error base = FileError(errnoValue, kDbfSource, path);
    throw Error(base.Number(), kDbfSource,
                "Cannot " + verb + " " + path + ": " + Lowercase(std::strerror(errnoValue)));
}

std::optional<std::size_t> DbfHeader::Find(const std::string& name) const {
    for (std::size_t i = 0; i < fields.size(); ++i) {
        if (fields[i].name == name) {
            return i;
        }
    }
    return std::nullopt;
}

std::string SiblingPath(const std::string& shpPath, const std::string& extension) {
    const auto slash = shpPath.find_last_of('/');
    const auto dot = shpPath.find_last_of('.');
    if (dot == std::string::npos || (slash != std::string::npos && dot < slash)) {
        return shpPath + extension;
    }
    // Keep the case style of the existing extension (".SHP" -> ".DBF").
    const bool upper = std::isupper(static_cast<unsigned char>(shpPath.back())) != 0;
    std::string result = shpPath.substr(0, dot) + extension;
    if (upper) {
        std::transform(result.begin() + static_cast<std::ptrdiff_t>(dot), result.end(),
                       result.begin() + static_cast<std::ptrdiff_t>(dot),
                       [](unsigned char c) { return static_cast<char>(std::toupper(c)); });
    }
    return result;
}

DbfEncoding ReadEncoding(const std::string& dbfPath) {
    std::ifstream cpg(SiblingPath(dbfPath, ".cpg"));
    if (!cpg) {
        cpg.open(SiblingPath(dbfPath, ".CPG"));
    }
    std::string text;
    if (cpg) {
        std::getline(cpg, text);
    }
    text.erase(std::remove_if(text.begin(), text.end(),
                              [](unsigned char c) { return std::isspace(c) != 0 || c == '-'; }),
               text.end());
    text = Lowercase(text);
    if (text == "utf8" || text == "65001") {
        return DbfEncoding::Utf8;
    }
    return DbfEncoding::Windows1252;
}

std::string DecodeDbfText(std::string_view bytes, DbfEncoding encoding) {
    if (encoding == DbfEncoding::Utf8) {
        return std::string(bytes);
    }
    return util::Windows1252ToUtf8(bytes);
}

std::string EncodeDbfText(const std::string& utf8, DbfEncoding encoding) {
    if (encoding == DbfEncoding::Utf8) {
        return utf8;
    }
    return util::Utf8ToWindows1252(utf8);
}

DbfHeader ReadDbfHeader(const std::string& dbfPath) {
    const FileHandle file(::open(dbfPath.c_str(), O_RDONLY | O_CLOEXEC));
    if (file.Get() < 0) {
        ThrowFileError(errno, "open", dbfPath);
    }
    return ReadDbfHeader(file.Get(), dbfPath);
}

DbfHeader ReadDbfHeader(int fd, const std::string& dbfPath) {
    DbfHeader header;
    header.encoding = ReadEncoding(dbfPath);
    std::string fixed(kFileHeaderSize, '\0');
    ReadExactly(fd, fixed.data(), fixed.size(), 0, dbfPath);
    header.recordCount = ReadU32(fixed, 4);
    header.headerLength = ReadU16(fixed, 8);
    header.recordLength = ReadU16(fixed, 10);
    if (header.headerLength < kFileHeaderSize + 1 || header.recordLength == 0) {
        throw DamagedTable(dbfPath, "not a dBASE table");
    }
    header.rawHeader.assign(header.headerLength, '\0');
    ReadExactly(fd, header.rawHeader.data(), header.rawHeader.size(), 0, dbfPath);

    std::size_t offset = 1; // after the deletion flag
    for (std::size_t at = kFileHeaderSize;
         at + kDescriptorSize <= header.headerLength && header.rawHeader[at] != kHeaderTerminator;
         at += kDescriptorSize) {
        DbfField field;
        const char* descriptor = header.rawHeader.data() + at;
        const std::size_t nameLength = strnlen(descriptor, 11);
        field.name = DecodeDbfText(std::string_view(descriptor, nameLength), header.encoding);
        field.type = static_cast<char>(std::toupper(static_cast<unsigned char>(descriptor[11])));
        field.length = static_cast<std::uint8_t>(descriptor[16]);
        field.decimals = static_cast<std::uint8_t>(descriptor[17]);
        field.offset = offset;
        offset += field.length;
        header.fields.push_back(std::move(field));
    }
    if (offset > header.recordLength) {
        throw DamagedTable(dbfPath, "its fields are longer than its records");
    }
    return header;
}

DbfNewColumn PlanDbfField(const std::string& dbfPath, const std::string& name, char type,
                          std::uint8_t length, std::uint8_t decimals) {
    DbfNewColumn plan;
    plan.table = ReadDbfHeader(dbfPath);
    const DbfHeader& header = plan.table;

    const std::string encodedName = EncodeDbfText(name, header.encoding);
    if (name.empty() || encodedName.size() > kDbfFieldNameBytes ||
        encodedName.find('\0') != std::string::npos) {
        throw Error(error_number::kHostFailure, kDbfSource,
                    "Invalid field name: " + name +
                        " (a shapefile's field names have 1 to 10 characters)");
    }
    if (header.encoding == DbfEncoding::Windows1252 &&
        util::Windows1252ToUtf8(encodedName) != name) {
        throw Error(error_number::kHostFailure, kDbfSource,
                    "Invalid field name: " + name +
                        " (not representable in the table's code page)");
    }
    for (const DbfField& field : header.fields) {
        if (EqualIgnoringCase(field.name, name)) {
            throw Error(error_number::kHostFailure, kDbfSource, "Field already exists: " + name);
        }
    }
    if (header.fields.size() >= kMaxFieldCount ||
        std::size_t{header.recordLength} + length > kMaxRecordLength) {
        throw Error(error_number::kHostFailure, kDbfSource,
                    "Cannot add the field " + name + ": the table " + dbfPath +
                        " holds the most fields a shapefile allows");
    }

    // The new header: the old one with one more descriptor before the terminator.
    std::string descriptor(kDescriptorSize, '\0');
    std::memcpy(descriptor.data(), encodedName.data(), encodedName.size());
    descriptor[11] = type;
    descriptor[16] = static_cast<char>(length);
    descriptor[17] = static_cast<char>(decimals);
    const std::size_t terminatorAt = kFileHeaderSize + kDescriptorSize * header.fields.size();
    std::string newHeader = header.rawHeader;
    if (terminatorAt >= newHeader.size() || newHeader[terminatorAt] != kHeaderTerminator) {
        newHeader.insert(std::min(terminatorAt, newHeader.size()), 1, kHeaderTerminator);
    }
    newHeader.insert(terminatorAt, descriptor);
    WriteU16(newHeader, 8, newHeader.size());
    WriteU16(newHeader, 10, std::size_t{header.recordLength} + length);
    const std::time_t now = std::time(nullptr);
    std::tm today{};
    localtime_r(&now, &today);
    newHeader[1] = static_cast<char>(today.tm_year % 256);
    newHeader[2] = static_cast<char>(today.tm_mon + 1);
    newHeader[3] = static_cast<char>(today.tm_mday);

    plan.layout = header;
    plan.layout.rawHeader = std::move(newHeader);
    plan.layout.headerLength = static_cast<std::uint16_t>(plan.layout.rawHeader.size());
    plan.layout.recordLength = static_cast<std::uint16_t>(header.recordLength + length);
    plan.field.name = name;
    plan.field.type = type;
    plan.field.length = length;
    plan.field.decimals = decimals;
    plan.field.offset = header.recordLength;
    plan.layout.fields.push_back(plan.field);
    return plan;
}

void CheckDbfRecordCount(const DbfHeader& header, std::int64_t fileSize,
                         const std::string& dbfPath) {
    const auto recordsEnd = static_cast<std::int64_t>(
        header.headerLength + std::size_t{header.recordCount} * header.recordLength);
    if (fileSize < recordsEnd) {
        throw DamagedTable(dbfPath, "it is shorter than its header says");
    }
    // Whole records behind those counted (a single byte more is the end-of-file mark): the
    // header undercounts, and a writer trusting it would drop them.
    const std::int64_t extra = fileSize - recordsEnd;
    if (extra > 1 && extra >= header.recordLength) {
        const std::int64_t held = header.recordCount + extra / header.recordLength;
        throw DamagedTable(dbfPath, "its header counts " + std::to_string(header.recordCount) +
                                        " records, the file holds " + std::to_string(held));
    }
}

void AddDbfField(const std::string& dbfPath, const std::string& name, char type,
                 std::uint8_t length, std::uint8_t decimals) {
    WriteDbfColumn(dbfPath, PlanDbfField(dbfPath, name, type, length, decimals));
}

DbfBatchFile::DbfBatchFile(const std::string& dbfPath, bool writable, std::size_t firstRecord,
                           std::size_t batchBytes)
    : m_path(dbfPath), m_next(firstRecord) {
    m_file = FileHandle(::open(dbfPath.c_str(), (writable ? O_RDWR : O_RDONLY) | O_CLOEXEC));
    if (m_file.Get() < 0) {
        ThrowFileError(errno, writable ? "write" : "open", dbfPath);
    }
    m_header = ReadDbfHeader(m_file.Get(), dbfPath);
    const std::size_t batch = std::max<std::size_t>(1, batchBytes / m_header.recordLength);
    m_buffer.resize(std::min<std::size_t>(batch, std::max<std::size_t>(1, m_header.recordCount)) *
                    m_header.recordLength);
}

bool DbfBatchFile::Next() {
    if (m_next >= m_header.recordCount) {
        m_batchSize = 0;
        return false;
    }
    const std::size_t capacity = m_buffer.size() / m_header.recordLength;
    m_batchFirst = m_next;
    m_batchSize = std::min<std::size_t>(capacity, m_header.recordCount - m_next);
    ReadExactly(m_file.Get(), m_buffer.data(), m_batchSize * m_header.recordLength,
                static_cast<off_t>(m_header.headerLength + m_batchFirst * m_header.recordLength),
                m_path);
    m_next += m_batchSize;
    return true;
}

void DbfBatchFile::Write() {
    WriteExactly(m_file.Get(), m_buffer.data(), m_batchSize * m_header.recordLength,
                 static_cast<off_t>(m_header.headerLength + m_batchFirst * m_header.recordLength),
                 m_path);
}

} // namespace quorel::host::shapefile
