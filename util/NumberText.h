#pragma once

#include <string>

namespace quorel::util {

// The general double-to-text conversion used wherever a number is printed: at most 15
// significant digits in the shortest form, exponent form from 1E+15 up and below 1E-4
// ("1E-05": sign and at least two exponent digits), no grouping, "-" for negatives, and "0" for
// negative zero. The decimal mark is the caller's: scripts always use '.', messages the user's.
std::string FormatNumber(double value, char decimalMark = '.');

// 17 significant digits, enough to read back the same double ("%.17g").
std::string FormatRoundTrip(double value);

} // namespace quorel::util
