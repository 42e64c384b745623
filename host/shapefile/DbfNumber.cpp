// The number reader and printer of a .dbf's numeric fields. The quick paths below are behind
// named functions and checked against std::from_chars and std::to_chars by the differential tests.

#include "host/shapefile/DbfTable.h"

#include <bit>
#include <charconv>
#include <cmath>
#include <cstring>
#include <iterator>

namespace quorel::host::shapefile {
namespace {

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
        // Signed conversions: the compilers make them shorter than the unsigned ones.
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

// The value of eight decimal digits, first digit first in memory, read in one word: false when
// a byte is not a digit.
[[gnu::always_inline]] inline bool EightDigitsRead(const char* text, std::uint32_t& value) {
    std::uint64_t word = 0;
    std::memcpy(&word, text, 8);
    if constexpr (std::endian::native == std::endian::big) {
        word = __builtin_bswap64(word);
    }
    // Each byte 0x30 to 0x39: its high half 3, and adding 6 does not carry out of its low half.
    constexpr std::uint64_t kHigh = 0xF0F0F0F0F0F0F0F0;
    if (((word & kHigh) | (((word + 0x0606060606060606) & kHigh) >> 4)) != 0x3333333333333333) {
        return false;
    }
    // Pairs, then fours, then the eight: each step joins neighbouring lanes.
    word = ((word & 0x0F0F0F0F0F0F0F0F) * 2561) >> 8;
    word = ((word & 0x00FF00FF00FF00FF) * 6553601) >> 16;
    value = static_cast<std::uint32_t>(((word & 0x0000FFFF0000FFFF) * 42949672960001) >> 32);
    return true;
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

} // namespace

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
      // At most 19 digits: the integer they make fits 64 bits (ReadLaidOut takes it only below
      // 2^53, where it is an exact double).
      m_laidOut(m_wholeWidth + m_decimals <= 19 && m_decimals < std::size(kPowersOfTen)) {
    if (m_wholeWidth >= 1 && m_wholeWidth <= 8 && m_offset + m_wholeWidth >= 8) {
        // The 8 bytes end with the whole part: blanks, then the digit; those before it are of
        // no account. Built as bytes, so that the words hold them in memory order.
        char mask[8];
        char zero[8];
        const std::size_t skipped = 8 - m_wholeWidth;
        for (std::size_t i = 0; i < 8; ++i) {
            mask[i] = static_cast<char>(i < skipped ? 0 : 0xFF);
            zero[i] = i < skipped ? '\0' : ' ';
        }
        zero[7] = '0';
        std::memcpy(&m_wholeMask, mask, 8);
        std::memcpy(&m_wholeZero, zero, 8);
        zero[7] = '1';
        std::memcpy(&m_wholeOne, zero, 8);
        m_wholeAsWord = true;
    }
}

// Every character is looked at whatever it is, and what it is only sets flags: the number of
// blanks in front varies from value to value, and the loop must not depend on it. Inlined in
// the column loop, so that one value's division overlaps the reading of the next.
[[gnu::always_inline]] inline bool DbfNumberReader::ReadLaidOut(const char* text,
                                                                double& value) const {
    std::uint64_t digits = 0;
    unsigned bad = 0;
    unsigned started = 0; // a sign or a digit was seen: no more blanks or signs
    unsigned seenDigit = 0;
    unsigned negative = 0;
    std::size_t wholeRead = 0;
    if (m_wholeAsWord) {
        // Degrees, 0 or 1 before the point, in one comparison rather than character by character.
        std::uint64_t word = 0;
        std::memcpy(&word, text + m_wholeWidth - 8, 8);
        word &= m_wholeMask;
        if (word == m_wholeZero || word == m_wholeOne) {
            digits = word == m_wholeOne ? 1 : 0;
            seenDigit = 1;
            wholeRead = m_wholeWidth;
        }
    }
    for (std::size_t i = wholeRead; i < m_wholeWidth; ++i) {
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
        std::size_t i = m_wholeWidth + 1;
        for (; i + 8 <= m_length; i += 8) {
            std::uint32_t eight = 0;
            bad |= EightDigitsRead(text + i, eight) ? 0 : 1;
            digits = digits * 100000000 + eight;
        }
        for (; i < m_length; ++i) {
            const unsigned digit = static_cast<unsigned char>(text[i]) - unsigned{'0'};
            bad |= digit > 9 ? 1 : 0;
            digits = digits * 10 + digit;
        }
        seenDigit = 1;
    }
    // Below 2^53 the digits are an exact double, over an exact power of ten: the one rounding of
    // the division gives the correctly rounded value, ParseDbfNumber's. Degrees written with 11
    // decimals (19 characters) have far fewer significant digits than that.
    if ((bad | (1 ^ seenDigit)) != 0 || digits > (std::uint64_t{1} << 53)) {
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
    // The quick way written out here rather than through operator(): the column loop then keeps
    // no optional per value.
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

} // namespace quorel::host::shapefile
