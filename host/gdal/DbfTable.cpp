#include "host/gdal/DbfTable.h"

#include "util/CodePage.h"
#include "util/Error.h"

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <charconv>
#include <cmath>
#include <cstring>
#include <ctime>
#include <fcntl.h>
#include <fstream>
#include <sys/stat.h>
#include <unistd.h>

namespace quorel::host::gdal {
namespace {

constexpr const char* kSource = "ShapefileTable";
constexpr std::size_t kFileHeaderSize = 32;
constexpr std::size_t kDescriptorSize = 32;
constexpr char kHeaderTerminator = 0x0D;
constexpr char kEndOfFile = 0x1A;
constexpr std::size_t kMaxFieldCount = 255;
constexpr std::size_t kMaxRecordLength = 65535;
constexpr std::size_t kBatchBytes = DbfBatchFile::kDefaultBatchBytes;

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

Error DamagedTable(const std::string& path, const std::string& what) {
    return Error(error_number::kHostFailure, kSource,
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

bool EqualIgnoringCase(const std::string& left, const std::string& right) {
    return Lowercase(left) == Lowercase(right);
}

std::string Folder(const std::string& path) {
    const auto slash = path.find_last_of('/');
    if (slash == std::string::npos) {
        return ".";
    }
    return slash == 0 ? "/" : path.substr(0, slash);
}

// Makes the rename itself durable.
void SyncFolder(const std::string& path) {
    const FileHandle folder(::open(Folder(path).c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (folder.Get() >= 0) {
        ::fsync(folder.Get());
    }
}

} // namespace

FileHandle& FileHandle::operator=(FileHandle&& other) noexcept {
    if (this != &other) {
        if (m_fd >= 0) {
            ::close(m_fd);
        }
        m_fd = other.m_fd;
        other.m_fd = -1;
    }
    return *this;
}

FileHandle::~FileHandle() {
    if (m_fd >= 0) {
        ::close(m_fd);
    }
}

void ThrowFileError(int errnoValue, const std::string& verb, const std::string& path) {
    const Error base = FileError(errnoValue, kSource, path);
    throw Error(base.Number(), kSource,
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

std::string_view FieldBytes(const char* record, const DbfField& field) {
    return std::string_view(record + field.offset, field.length);
}

std::optional<double> ParseDbfNumber(std::string_view text) {
    while (!text.empty() && (text.front() == ' ' || text.front() == '\0')) {
        text.remove_prefix(1);
    }
    while (!text.empty() && (text.back() == ' ' || text.back() == '\0')) {
        text.remove_suffix(1);
    }
    if (text.empty() || text.front() == '*') {
        return std::nullopt;
    }
    if (text.front() == '+') {
        text.remove_prefix(1);
    }
    double value = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    if (error != std::errc() || end != text.data() + text.size()) {
        return std::nullopt;
    }
    return value;
}

bool FormatDbfNumber(std::optional<double> value, const DbfField& field, char* destination) {
    const std::size_t width = field.length;
    if (!value || !std::isfinite(*value)) {
        std::memset(destination, '*', width);
        return true;
    }
    char text[400];
    for (int decimals = field.decimals; decimals >= 0; --decimals) {
        const auto result =
            std::to_chars(text, text + sizeof text, *value, std::chars_format::fixed, decimals);
        const auto length = static_cast<std::size_t>(result.ptr - text);
        if (result.ec == std::errc() && length <= width) {
            std::memset(destination, ' ', width - length);
            std::memcpy(destination + width - length, text, length);
            return true;
        }
    }
    for (int digits = static_cast<int>(width); digits >= 0; --digits) {
        const auto result =
            std::to_chars(text, text + sizeof text, *value, std::chars_format::scientific, digits);
        const auto length = static_cast<std::size_t>(result.ptr - text);
        if (result.ec == std::errc() && length <= width) {
            std::memset(destination, ' ', width - length);
            std::memcpy(destination + width - length, text, length);
            return true;
        }
    }
    return false;
}

void AddDbfField(const std::string& dbfPath, const std::string& name, char type,
                 std::uint8_t length, std::uint8_t decimals) {
    const FileHandle old(::open(dbfPath.c_str(), O_RDONLY | O_CLOEXEC));
    if (old.Get() < 0) {
        ThrowFileError(errno, "open", dbfPath);
    }
    const DbfHeader header = ReadDbfHeader(old.Get(), dbfPath);

    const std::string encodedName = EncodeDbfText(name, header.encoding);
    if (name.empty() || encodedName.size() > 10 || encodedName.find('\0') != std::string::npos) {
        throw Error(error_number::kHostFailure, kSource,
                    "Invalid field name: " + name +
                        " (a shapefile's field names have 1 to 10 characters)");
    }
    if (header.encoding == DbfEncoding::Windows1252 &&
        util::Windows1252ToUtf8(encodedName) != name) {
        throw Error(error_number::kHostFailure, kSource,
                    "Invalid field name: " + name +
                        " (not representable in the table's code page)");
    }
    for (const DbfField& field : header.fields) {
        if (EqualIgnoringCase(field.name, name)) {
            throw Error(error_number::kHostFailure, kSource, "Field already exists: " + name);
        }
    }
    if (header.fields.size() >= kMaxFieldCount ||
        std::size_t{header.recordLength} + length > kMaxRecordLength) {
        throw Error(error_number::kHostFailure, kSource,
                    "Cannot add the field " + name + ": the table " + dbfPath +
                        " holds the most fields a shapefile allows");
    }
    struct stat status {};
    if (::fstat(old.Get(), &status) != 0) {
        ThrowFileError(errno, "open", dbfPath);
    }
    const std::size_t oldRecordLength = header.recordLength;
    const auto needed =
        static_cast<off_t>(header.headerLength + header.recordCount * oldRecordLength);
    if (status.st_size < needed) {
        throw DamagedTable(dbfPath, "it is shorter than its header says");
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
    const std::size_t newRecordLength = oldRecordLength + length;
    WriteU16(newHeader, 8, newHeader.size());
    WriteU16(newHeader, 10, newRecordLength);
    const std::time_t now = std::time(nullptr);
    std::tm today{};
    localtime_r(&now, &today);
    newHeader[1] = static_cast<char>(today.tm_year % 256);
    newHeader[2] = static_cast<char>(today.tm_mon + 1);
    newHeader[3] = static_cast<char>(today.tm_mday);

    const std::string tempPath = dbfPath + ".quorel-tmp";
    FileHandle temp(
        ::open(tempPath.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, status.st_mode & 07777));
    if (temp.Get() < 0) {
        ThrowFileError(errno, "write", tempPath);
    }
    try {
        ::fchmod(temp.Get(), status.st_mode & 07777);
        off_t out = 0;
        WriteExactly(temp.Get(), newHeader.data(), newHeader.size(), out, tempPath);
        out += static_cast<off_t>(newHeader.size());

        const std::size_t batch = std::max<std::size_t>(1, kBatchBytes / newRecordLength);
        std::vector<char> in(batch * oldRecordLength);
        std::vector<char> outBuffer(batch * newRecordLength);
        for (std::size_t first = 0; first < header.recordCount; first += batch) {
            const std::size_t count = std::min<std::size_t>(batch, header.recordCount - first);
            ReadExactly(old.Get(), in.data(), count * oldRecordLength,
                        static_cast<off_t>(header.headerLength + first * oldRecordLength), dbfPath);
            for (std::size_t r = 0; r < count; ++r) {
                char* target = outBuffer.data() + r * newRecordLength;
                std::memcpy(target, in.data() + r * oldRecordLength, oldRecordLength);
                std::memset(target + oldRecordLength, '*', length);
            }
            WriteExactly(temp.Get(), outBuffer.data(), count * newRecordLength, out, tempPath);
            out += static_cast<off_t>(count * newRecordLength);
        }
        WriteExactly(temp.Get(), &kEndOfFile, 1, out, tempPath);
        if (::fsync(temp.Get()) != 0) {
            ThrowFileError(errno, "write", tempPath);
        }
        temp = FileHandle();
        if (::rename(tempPath.c_str(), dbfPath.c_str()) != 0) {
            ThrowFileError(errno, "replace", dbfPath);
        }
    } catch (...) {
        temp = FileHandle();
        ::unlink(tempPath.c_str());
        throw;
    }
    SyncFolder(dbfPath);
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

} // namespace quorel::host::gdal
