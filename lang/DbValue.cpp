#include "lang/DbValue.h"

#include "util/Error.h"
#include "util/NumberText.h"
#include "util/StringFunctions.h"

#include <charconv>
#include <cmath>
#include <limits>

namespace quorel::lang {
namespace {

Error InvalidUseOfNull(const std::string& source) {
    return Error(error_number::kInvalidUseOfNull, source, "Invalid use of Null");
}

// A text counts as a number when it holds one decimal number and blanks around it; either mark
// is accepted, as a number typed under either regional setting.
double TextToNumber(const std::string& text, const std::string& source) {
    std::size_t first = text.find_first_not_of(' ');
    std::size_t last = text.find_last_not_of(' ');
    if (first == std::string::npos) {
        throw Error(error_number::kTypeMismatch, source, "Type mismatch");
    }
    std::string trimmed = text.substr(first, last - first + 1);
    for (char& c : trimmed) {
        if (c == ',') {
            c = '.';
        }
    }
    const char* begin = trimmed.data();
    if (*begin == '+') {
        ++begin;
    }
    double value = 0;
    const auto [end, code] = std::from_chars(begin, trimmed.data() + trimmed.size(), value);
    if (code != std::errc() || end != trimmed.data() + trimmed.size()) {
        throw Error(error_number::kTypeMismatch, source, "Type mismatch");
    }
    return value;
}

double ValueToNumber(const DbValue& value, const std::string& source) {
    if (IsEmpty(value)) {
        return 0;
    }
    if (IsNull(value)) {
        throw InvalidUseOfNull(source);
    }
    if (const auto* number = std::get_if<double>(&value)) {
        return *number;
    }
    return TextToNumber(std::get<std::string>(value), source);
}

template <typename Int> Int RoundToInteger(const DbValue& value, const std::string& source) {
    const double number = std::nearbyint(ValueToNumber(value, source));
    if (!(number >= static_cast<double>(std::numeric_limits<Int>::min()) &&
          number <= static_cast<double>(std::numeric_limits<Int>::max()))) {
        throw Error(error_number::kOverflow, source, "Overflow");
    }
    return static_cast<Int>(number);
}

} // namespace

std::string ValueToText(const DbValue& value, const std::string& source) {
    if (IsEmpty(value)) {
        return {};
    }
    if (IsNull(value)) {
        throw InvalidUseOfNull(source);
    }
    if (const auto* number = std::get_if<double>(&value)) {
        // A number read as text follows the user's regional settings.
        return util::FormatNumber(*number, util::DecimalSeparator());
    }
    return std::get<std::string>(value);
}

std::int16_t ValueToInt16(const DbValue& value, const std::string& source) {
    return RoundToInteger<std::int16_t>(value, source);
}

std::int32_t ValueToInt32(const DbValue& value, const std::string& source) {
    return RoundToInteger<std::int32_t>(value, source);
}

} // namespace quorel::lang
