#include "host/shapefile/DbfTable.h"

#include "util/CodePage.h"
#include "util/Error.h"

#include <algorithm>
#include <atomic>
#include <bit>
#include <cctype>
#include <cerrno>
#include <charconv>
#include <cmath>
#include <cstring>
#include <ctime>
#include <fcntl.h>
#include <fstream>
#include <mutex>
#include <sys/stat.h>
#include <thread>
#include <unistd.h>

namespace quorel::host::shapefile {
namespace {

constexpr const char* kSource = "ShapefileTable";
constexpr std::size_t kFileHeaderSize = 32;
constexpr std::size_t kDescriptorSize = 32;
constexpr char kHeaderTerminator = 0x0D;
constexpr char kEndOfFile = 0x1A;
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

Error DamagedTable(const std::string& path, const std::string& what) {
    return Error(error_number::kHostLayerDamaged, kSource,
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

constexpr std::uint64_t kPowersOfTen[] = {1,
                                          10,
                                          100,
                                          1000,
                                          10000,
                                          100000,
                                          1000000,
                                          10000000,
                                          100000000,
                                          1000000000,
                                          10000000000,
                                          100000000000,
                                          1000000000000,
                                          10000000000000,
                                          100000000000000,
                                          1000000000000000,
                                          10000000000000000,
                                          100000000000000000,
                                          1000000000000000000};

// A field's number as most tables write it: blanks, an optional sign, at most 15 digits and a
// decimal point, blanks. Such a value is an exact integer divided by an exact power of ten, and
// that single division is correctly rounded: the very double from_chars gives, without its general
// cost.
std::optional<double> ParsePlainDecimal(std::string_view text) {
    const char* at = text.data();
    const char* const end = at + text.size();
    while (at < end && (*at == ' ' || *at == '\0')) {
        ++at;
    }
    bool negative = false;
    if (at < end && (*at == '-' || *at == '+')) {
        negative = *at == '-';
        ++at;
    }
    // The digits before the point, then those after it: two tight loops.
    std::uint64_t digits = 0;
    const char* const wholeStart = at;
    for (unsigned digit = 0; at < end && (digit = static_cast<unsigned>(*at - '0')) <= 9; ++at) {
        digits = digits * 10 + digit;
    }
    std::size_t count = static_cast<std::size_t>(at - wholeStart);
    std::size_t decimals = 0;
    if (at < end && *at == '.') {
        const char* const partStart = ++at;
        for (unsigned digit = 0; at < end && (digit = static_cast<unsigned>(*at - '0')) <= 9;
             ++at) {
            digits = digits * 10 + digit;
        }
        decimals = static_cast<std::size_t>(at - partStart);
        count += decimals;
    }
    while (at < end && (*at == ' ' || *at == '\0')) {
        ++at;
    }
    if (count == 0 || count > 15 || at != end) {
        return std::nullopt;
    }
    const double magnitude =
        static_cast<double>(digits) / static_cast<double>(kPowersOfTen[decimals]);
    return negative ? -magnitude : magnitude;
}

// magnitude * 10^decimals rounded to an integer as the exact binary value rounds, half to
// even; nullopt from 2^63 on.
std::optional<std::uint64_t> ScaledExactly(double magnitude, int decimals) {
    // Usually the rounded product settles it: it lies within half an ulp of the exact one, so
    // away from one half by more than that, both round to the same integer.
    const double product = magnitude * static_cast<double>(kPowersOfTen[decimals]);
    if (product < 0x1p52) {
        // (Signed conversions: the unsigned ones cost a branch each.)
        const auto whole = static_cast<std::int64_t>(product);
        const double fraction = product - static_cast<double>(whole);
        if (std::fabs(fraction - 0.5) > product * 0x1p-52) {
            return static_cast<std::uint64_t>(whole) + (fraction > 0.5 ? 1 : 0);
        }
    }
    // Otherwise exactly: magnitude = mantissa / 2^shift, so mantissa * 10^decimals / 2^shift in
    // 128-bit integers gives the quotient and the remainder to round by.
    const auto bits = std::bit_cast<std::uint64_t>(magnitude);
    const auto exponent = static_cast<int>((bits >> 52) & 0x7FF);
    const std::uint64_t fraction = bits & ((std::uint64_t{1} << 52) - 1);
    const std::uint64_t mantissa = exponent == 0 ? fraction : fraction | std::uint64_t{1} << 52;
    const int shift = exponent == 0 ? 1074 : 1075 - exponent;
    if (mantissa == 0 || shift >= 127) {
        return 0; // below 2^-73: every printed digit is 0
    }
    if (shift <= 0) {
        return std::nullopt;
    }
    __extension__ typedef unsigned __int128 Wide; // GCC and Clang have it
    const Wide product128 = Wide{mantissa} * kPowersOfTen[decimals];
    Wide quotient = product128 >> shift;
    const Wide remainder = product128 - (quotient << shift);
    const Wide half = Wide{1} << (shift - 1);
    if (remainder > half || (remainder == half && (quotient & 1) != 0)) {
        ++quotient;
    }
    if ((quotient >> 63) != 0) {
        return std::nullopt;
    }
    return static_cast<std::uint64_t>(quotient);
}

// The eight decimal digits of n (below 10^8, zeros in front) as the bytes of one word, first
// digit first in memory: the ten-thousands, hundreds and tens split in all lanes at once.
[[gnu::always_inline]] inline std::uint64_t EightDigits(std::uint32_t n) {
    const std::uint64_t merged = n / 10000 | std::uint64_t{n % 10000} << 32;
    const std::uint64_t hundreds = (merged * 10486) >> 20 & (std::uint64_t{0x7F} << 32 | 0x7F);
    const std::uint64_t pairs = (merged - 100 * hundreds) << 16 | hundreds;
    std::uint64_t tens = (pairs * 103) >> 10 & 0x000F000F000F000F;
    tens |= (pairs - 10 * tens) << 8;
    const std::uint64_t word = tens | 0x3030303030303030;
    if constexpr (std::endian::native == std::endian::big) {
        return __builtin_bswap64(word);
    }
    return word;
}

// n blanks in at most two overlapping stores below 33: the count varies with the number's
// length only, so the same stores come back value after value, where memset is a call.
inline void FillBlanks(char* destination, std::size_t n) {
    constexpr char kBlanks[] = "                ";
    if (n >= 16 && n <= 32) {
        std::memcpy(destination, kBlanks, 16);
        std::memcpy(destination + n - 16, kBlanks, 16);
    } else if (n >= 8 && n < 16) {
        std::memcpy(destination, kBlanks, 8);
        std::memcpy(destination + n - 8, kBlanks, 8);
    } else if (n >= 4 && n < 8) {
        std::memcpy(destination, kBlanks, 4);
        std::memcpy(destination + n - 4, kBlanks, 4);
    } else if (n < 4) {
        for (std::size_t i = 0; i < n; ++i) {
            destination[i] = ' ';
        }
    } else {
        std::memset(destination, ' ', n);
    }
}

// Writes the value right-aligned with exactly `decimals` decimals, as std::to_chars prints it
// in fixed form (the exact binary value, rounded half to even), for values below 2^63 / 10^d,
// up to 16 decimals and fields of 16 characters or more; false, writing nothing, otherwise or
// when the value does not fit.
bool FormatFixedQuickly(double value, int decimals, char* destination, std::size_t width) {
    if (decimals < 0 || decimals > 16 || width < 16 || !std::isfinite(value)) {
        return false;
    }
    const bool negative = std::signbit(value);
    const double magnitude = std::fabs(value);
    const auto places = static_cast<std::size_t>(decimals);
    std::uint64_t whole = 0;
    std::uint64_t part = 0;
    // Whole numbers are common (a degree of 0 or 1, counts, codes): their decimals are zeros.
    const auto truncated = static_cast<std::int64_t>(std::min(magnitude, 0x1p62));
    if (static_cast<double>(truncated) == magnitude) {
        whole = static_cast<std::uint64_t>(truncated);
        if (whole >= kPowersOfTen[18] / kPowersOfTen[places]) {
            return false; // past what the general way handles
        }
    } else {
        const std::optional<std::uint64_t> scaled = ScaledExactly(magnitude, decimals);
        if (!scaled) {
            return false;
        }
        whole = *scaled / kPowersOfTen[places];
        part = *scaled % kPowersOfTen[places];
    }
    std::size_t wholeDigits = 1;
    while (wholeDigits < 19 && whole >= kPowersOfTen[wholeDigits]) {
        ++wholeDigits;
    }
    const std::size_t length = (negative ? 1 : 0) + wholeDigits + (places > 0 ? places + 1 : 0);
    if (length > width) {
        return false;
    }
    // From the right. The words may put zeros left of the decimals: the point, the digits
    // before it and the blanks written after them replace those.
    char* at = destination + width;
    if (places > 0) {
        constexpr std::uint64_t kZeros = 0x3030303030303030;
        const std::uint64_t low =
            part == 0 ? kZeros : EightDigits(static_cast<std::uint32_t>(part % 100000000));
        std::memcpy(at - 8, &low, 8);
        if (places > 8) {
            const std::uint64_t high =
                part == 0 ? kZeros : EightDigits(static_cast<std::uint32_t>(part / 100000000));
            std::memcpy(at - 16, &high, 8);
        }
        at -= places;
        *--at = '.';
    }
    static constexpr char kPairs[] =
        "00010203040506070809101112131415161718192021222324252627282930"
        "31323334353637383940414243444546474849505152535455565758596061"
        "62636465666768697071727374757677787980818283848586878889909192"
        "93949596979899";
    while (whole >= 100) {
        at -= 2;
        std::memcpy(at, kPairs + 2 * (whole % 100), 2);
        whole /= 100;
    }
    if (whole >= 10) {
        at -= 2;
        std::memcpy(at, kPairs + 2 * whole, 2);
    } else {
        *--at = static_cast<char>('0' + whole);
    }
    if (negative) {
        *--at = '-';
    }
    FillBlanks(destination, static_cast<std::size_t>(at - destination));
    return true;
}

bool EqualIgnoringCase(const std::string& left, const std::string& right) {
    return Lowercase(left) == Lowercase(right);
}

} // namespace

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

std::optional<double> ParseDbfNumber(std::string_view text) {
    if (const auto quick = ParsePlainDecimal(text)) {
        return quick;
    }
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

DbfNumberReader::DbfNumberReader(const DbfField& field)
    : m_offset(field.offset), m_length(field.length),
      m_wholeWidth(field.decimals > 0 && field.decimals < field.length
                       ? field.length - field.decimals - 1
                       : field.length),
      m_decimals(field.decimals > 0 && field.decimals < field.length ? field.decimals : 0),
      // At most 15 digits: an exact integer over an exact power of ten, one rounding.
      m_laidOut(m_wholeWidth + m_decimals <= 15) {}

// Every character is looked at whatever it is, and what it is only sets flags: the number of
// blanks in front, which varies from value to value, costs no mispredicted branch.
bool DbfNumberReader::ReadLaidOut(const char* text, double& value) const {
    std::uint64_t digits = 0;
    unsigned bad = 0;
    unsigned started = 0; // a sign or a digit was seen: no more blanks or signs
    unsigned seenDigit = 0;
    unsigned negative = 0;
    for (std::size_t i = 0; i < m_wholeWidth; ++i) {
        const auto c = static_cast<unsigned char>(text[i]);
        const unsigned digit = c - unsigned{'0'};
        const unsigned isDigit = digit <= 9 ? 1 : 0;
        const unsigned isBlank = (c == ' ' ? 1 : 0) | (c == '\0' ? 1 : 0);
        const unsigned isMinus = c == '-' ? 1 : 0;
        const unsigned isSign = isMinus | (c == '+' ? 1 : 0);
        bad |= ((isBlank | isSign) & started) | (1 ^ (isDigit | isBlank | isSign));
        started |= isSign | isDigit;
        seenDigit |= isDigit;
        negative |= isMinus;
        digits = digits * 10 + (isDigit != 0 ? digit : 0); // 0 while only blanks came
    }
    if (m_decimals > 0) {
        bad |= text[m_wholeWidth] != '.' ? 1 : 0;
        for (std::size_t i = m_wholeWidth + 1; i < m_length; ++i) {
            const unsigned digit = static_cast<unsigned char>(text[i]) - unsigned{'0'};
            bad |= digit > 9 ? 1 : 0;
            digits = digits * 10 + digit;
        }
        seenDigit = 1;
    }
    if ((bad | (1 ^ seenDigit)) != 0) {
        return false;
    }
    const double magnitude =
        static_cast<double>(digits) / static_cast<double>(kPowersOfTen[m_decimals]);
    value = negative != 0 ? -magnitude : magnitude;
    return true;
}

std::optional<double> DbfNumberReader::operator()(const char* record) const {
    const char* text = record + m_offset;
    double value = 0.0;
    if (m_laidOut && ReadLaidOut(text, value)) {
        return value;
    }
    return ParseDbfNumber(std::string_view(text, m_length));
}

void DbfNumberReader::Read(const char* records, std::size_t recordLength, std::size_t count,
                           double* values, std::uint8_t* isNull) const {
    // The quick way written out here rather than through operator(): its optional costs the
    // column loop a fifth of its time.
    for (std::size_t r = 0; r < count; ++r) {
        const char* text = records + r * recordLength + m_offset;
        double value = 0.0;
        if (m_laidOut && ReadLaidOut(text, value)) {
            values[r] = value;
            isNull[r] = 0;
            continue;
        }
        const std::optional<double> parsed = ParseDbfNumber(std::string_view(text, m_length));
        values[r] = parsed.value_or(0.0);
        isNull[r] = parsed ? 0 : 1;
    }
}

bool FormatDbfNumber(std::optional<double> value, const DbfField& field, char* destination) {
    if (!value) {
        std::memset(destination, '*', field.length);
        return true;
    }
    return FormatDbfNumber(*value, field, destination);
}

bool FormatDbfNumber(double value, const DbfField& field, char* destination) {
    const std::size_t width = field.length;
    if (!std::isfinite(value)) {
        std::memset(destination, '*', width);
        return true;
    }
    if (FormatFixedQuickly(value, field.decimals, destination, width)) {
        return true;
    }
    char text[400];
    for (int decimals = field.decimals; decimals >= 0; --decimals) {
        const auto result =
            std::to_chars(text, text + sizeof text, value, std::chars_format::fixed, decimals);
        const auto length = static_cast<std::size_t>(result.ptr - text);
        if (result.ec == std::errc() && length <= width) {
            std::memset(destination, ' ', width - length);
            std::memcpy(destination + width - length, text, length);
            return true;
        }
    }
    for (int digits = static_cast<int>(width); digits >= 0; --digits) {
        const auto result =
            std::to_chars(text, text + sizeof text, value, std::chars_format::scientific, digits);
        const auto length = static_cast<std::size_t>(result.ptr - text);
        if (result.ec == std::errc() && length <= width) {
            std::memset(destination, ' ', width - length);
            std::memcpy(destination + width - length, text, length);
            return true;
        }
    }
    return false;
}

DbfNewColumn PlanDbfField(const std::string& dbfPath, const std::string& name, char type,
                          std::uint8_t length, std::uint8_t decimals) {
    DbfNewColumn plan;
    plan.table = ReadDbfHeader(dbfPath);
    const DbfHeader& header = plan.table;

    const std::string encodedName = EncodeDbfText(name, header.encoding);
    if (name.empty() || encodedName.size() > kDbfFieldNameBytes ||
        encodedName.find('\0') != std::string::npos) {
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

namespace {

// Builds the records of the new table batch by batch, on every core, and writes each batch at
// its place in the new file: the batches are independent, so no core waits for another.
class ColumnWriter {
public:
    ColumnWriter(const DbfNewColumn& plan, int oldFile, const std::string& oldPath, int newFile,
                 const std::string& newPath, const DbfColumnFiller* filler,
                 const DbfWorkSharing& sharing)
        : m_plan(plan), m_oldFile(oldFile), m_oldPath(oldPath), m_newFile(newFile),
          m_newPath(newPath), m_filler(filler), m_threads(sharing.threads),
          m_batch(std::max<std::size_t>(1, sharing.batchBytes / plan.layout.recordLength)),
          m_batches((plan.table.recordCount + m_batch - 1) / m_batch) {}

    // Throws the failure of the earliest batch that failed.
    void Run(const DbfProgress& progress) {
        const std::size_t wanted =
            m_threads > 0
                ? m_threads
                : std::min<std::size_t>(4, std::max(1u, std::thread::hardware_concurrency()));
        const std::size_t helpers = m_batches < 2 ? 0 : std::min(wanted, m_batches) - 1;
        std::vector<std::thread> threads;
        for (std::size_t i = 0; i < helpers; ++i) {
            threads.emplace_back([this] { Work(nullptr); });
        }
        Work(&progress);
        for (std::thread& thread : threads) {
            thread.join();
        }
        if (m_failure) {
            std::rethrow_exception(m_failure);
        }
        // The last batch may have been another thread's.
        if (progress && m_reported < m_plan.table.recordCount) {
            progress(m_plan.table.recordCount);
        }
    }

private:
    void Work(const DbfProgress* progress) {
        const std::size_t oldLength = m_plan.table.recordLength;
        const std::size_t newLength = m_plan.layout.recordLength;
        const DbfField& field = m_plan.field;
        // Every byte is written before it is read: no need to clear the buffers first.
        const std::size_t capacity = std::min<std::size_t>(m_batch, m_plan.table.recordCount);
        // One buffer: the old records are read into its start and spread to their new places.
        const auto out = std::make_unique_for_overwrite<char[]>(capacity * newLength);
        std::unique_ptr<DbfColumnFiller::Scratch> scratch;
        while (true) {
            const std::size_t batch = m_next.fetch_add(1);
            if (batch >= m_batches || batch > m_failedBatch.load()) {
                return;
            }
            try {
                const std::size_t first = batch * m_batch;
                const std::size_t count = std::min(m_batch, m_plan.table.recordCount - first);
                const auto from = static_cast<off_t>(m_plan.table.headerLength + first * oldLength);
                ReadExactly(m_oldFile, out.get(), count * oldLength, from, m_oldPath);
                // The old table's cached pages are of no more use once replaced: let them go
                // now, on every core, rather than all at once when the old file is released.
                ::posix_fadvise(m_oldFile, from, static_cast<off_t>(count * oldLength),
                                POSIX_FADV_DONTNEED);
                // The filler fills the records in use; the others, and all without a filler,
                // get Null.
                // Last record first: each moves to a place no earlier record still occupies.
                for (std::size_t r = count; r-- > 0;) {
                    char* target = out.get() + r * newLength;
                    std::memmove(target, out.get() + r * oldLength, oldLength);
                    if (!m_filler || DbfBatchFile::IsDeleted(target)) {
                        std::memset(target + field.offset, '*', field.length);
                    }
                }
                if (m_filler) {
                    if (!scratch) {
                        scratch = m_filler->NewScratch();
                    }
                    m_filler->Fill(first, count, out.get(), scratch.get());
                }
                const auto at = static_cast<off_t>(m_plan.layout.headerLength + first * newLength);
                WriteExactly(m_newFile, out.get(), count * newLength, at, m_newPath);
                // Start putting the batch on disk now, so the final flush has little to wait for.
                ::sync_file_range(m_newFile, at, static_cast<off_t>(count * newLength),
                                  SYNC_FILE_RANGE_WRITE);
                const std::size_t done = m_done.fetch_add(count) + count;
                if (progress && *progress) {
                    m_reported = done;
                    (*progress)(done);
                }
            } catch (...) {
                const std::lock_guard<std::mutex> lock(m_mutex);
                if (batch < m_failedBatch.load()) {
                    m_failedBatch = batch;
                    m_failure = std::current_exception();
                }
            }
        }
    }

    const DbfNewColumn& m_plan;
    int m_oldFile;
    const std::string& m_oldPath;
    int m_newFile;
    const std::string& m_newPath;
    const DbfColumnFiller* m_filler;
    std::size_t m_threads; // 0: one per core
    std::size_t m_batch;   // records per batch
    std::size_t m_batches; // batches in the table
    std::atomic<std::size_t> m_next{0};
    std::atomic<std::size_t> m_done{0};
    std::atomic<std::size_t> m_failedBatch{SIZE_MAX};
    std::size_t m_reported = 0; // the calling thread's
    std::mutex m_mutex;
    std::exception_ptr m_failure;
};

} // namespace

void WriteDbfColumn(const std::string& dbfPath, const DbfNewColumn& plan,
                    const DbfColumnFiller* filler, const DbfProgress& progress,
                    const DbfWorkSharing& sharing) {
    const FileHandle old(::open(dbfPath.c_str(), O_RDONLY | O_CLOEXEC));
    if (old.Get() < 0) {
        ThrowFileError(errno, "open", dbfPath);
    }
    if (ReadDbfHeader(old.Get(), dbfPath).rawHeader != plan.table.rawHeader) {
        throw Error(error_number::kHostFailure, kSource,
                    "Cannot add the field " + plan.field.name + ": the table " + dbfPath +
                        " changed meanwhile");
    }
    struct stat status {};
    if (::fstat(old.Get(), &status) != 0) {
        ThrowFileError(errno, "open", dbfPath);
    }
    CheckDbfRecordCount(plan.table, status.st_size, dbfPath);

    // The new table takes the old one's mode and owner.
    util::FileReplacement temp(dbfPath, kSource);
    const std::string& tempPath = temp.TemporaryPath();
    // Room for the whole table at once: a full disk shows now, not after the work, and the
    // writes need not reserve their blocks page by page.
    const auto size =
        static_cast<off_t>(plan.layout.headerLength +
                           std::size_t{plan.table.recordCount} * plan.layout.recordLength + 1);
    if (::fallocate(temp.Descriptor(), 0, 0, size) != 0 && errno != EOPNOTSUPP) {
        ThrowFileError(errno, "write", tempPath);
    }
    WriteExactly(temp.Descriptor(), plan.layout.rawHeader.data(), plan.layout.rawHeader.size(), 0,
                 tempPath);
    ColumnWriter(plan, old.Get(), dbfPath, temp.Descriptor(), tempPath, filler, sharing)
        .Run(progress);
    const auto end = static_cast<off_t>(
        plan.layout.headerLength + std::size_t{plan.table.recordCount} * plan.layout.recordLength);
    WriteExactly(temp.Descriptor(), &kEndOfFile, 1, end, tempPath);
    temp.Commit();
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
