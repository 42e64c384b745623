#include "util/NumberText.h"

#include <cmath>
#include <cstdio>
#include <cstdlib>

namespace quorel::util {

std::string FormatNumber(double value, char decimalMark) {
    if (std::isnan(value)) {
        return "NaN";
    }
    if (std::isinf(value)) {
        return value > 0 ? "Infinity" : "-Infinity";
    }
    if (value == 0.0) {
        return "0";
    }

    // Round to 15 significant digits first; the exponent comes from the rounded value, so that
    // 999999999999999.9 becomes 1E+15.
    char buffer[40];
    std::snprintf(buffer, sizeof buffer, "%.14e", std::fabs(value));
    std::string digits;
    digits += buffer[0];
    const char* p = buffer + 2; // skip the leading digit and the point
    while (*p != 'e') {
        digits += *p++;
    }
    const int exponent = std::atoi(p + 1);
    while (digits.size() > 1 && digits.back() == '0') {
        digits.pop_back();
    }

    std::string text = value < 0 ? "-" : "";
    if (exponent >= 15 || exponent < -4) {
        text += digits[0];
        if (digits.size() > 1) {
            text += decimalMark;
            text.append(digits, 1, std::string::npos);
        }
        char expText[16];
        std::snprintf(expText, sizeof expText, "E%c%02d", exponent < 0 ? '-' : '+',
                      std::abs(exponent));
        text += expText;
    } else if (exponent < 0) {
        text += '0';
        text += decimalMark;
        text.append(static_cast<std::size_t>(-exponent - 1), '0');
        text += digits;
    } else {
        const auto intDigits = static_cast<std::size_t>(exponent) + 1;
        if (digits.size() <= intDigits) {
            text += digits;
            text.append(intDigits - digits.size(), '0');
        } else {
            text.append(digits, 0, intDigits);
            text += decimalMark;
            text.append(digits, intDigits, std::string::npos);
        }
    }
    return text;
}

std::string FormatRoundTrip(double value) {
    char buffer[40];
    std::snprintf(buffer, sizeof buffer, "%.17g", value);
    return buffer;
}

} // namespace quorel::util
