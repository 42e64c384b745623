#pragma once

// Criteria and values on which an engine's degrees must equal the script's bit for bit: every
// kind, parameters that print exactly and ones that do not, ramps narrow and wide enough for a
// product to vanish, and values at and beside each break point, Null, infinite, huge and tiny.

#include "criterion/Membership.h"
#include "criterion/Parameters.h"

#include <cmath>
#include <cstring>
#include <limits>
#include <optional>
#include <ostream>
#include <vector>

namespace quorel::test {

struct DegreeCase {
    int kind;
    double a, b, c, d;  // as typed; completed by Completed()
    bool fails = false; // the script divides by zero or overflows
};

inline void PrintTo(const DegreeCase& c, std::ostream* os) {
    *os << "kind " << c.kind << " (" << c.a << ", " << c.b << ", " << c.c << ", " << c.d << ")";
}

inline DegreeCase Completed(DegreeCase c) {
    criterion::CompleteParameters(c.kind, c.a, c.b, c.c, c.d);
    return c;
}

inline std::vector<DegreeCase> DegreeCases() {
    return {
        {1, 3, 0, 0, 0},
        {1, 0.1, 0, 0, 0},
        {2, 0, 10, 20, 0},
        {2, -5, 0.3, 7.77, 0},
        {2, 1e-300, 2e-300, 3e-300, 0},
        {3, 0.1, 0.7, 0, 0},
        {3, -1e300, 1e300, 0, 0},
        {4, 0, 10, 0, 0},
        {4, 2.123456789012345, 3.3333333333333333, 0, 0},
        {5, 0, 10, 20, 30},
        {5, 0.1, 2.5, 3, 3e25},
        // Decimals SQLite 3.40 reads one unit off in the last place.
        {5, -9.87388841336309e-31, 6.88869515289026e-31, 2.09344391342879e-30, 0.5},
        {2, 4, 4, 8, 0, true},
        {3, 5, 100000000000000, 0, 0, true},
        {5, 0, 1, 2, 2, true},
        {2, -1e308, 1e308, 1.5e308, 0, true},
    };
}

// Values at, just below and just above each parameter, and the awkward ones.
inline std::vector<double> DegreeValues(const DegreeCase& c) {
    std::vector<double> values{0.0,
                               -0.0,
                               1.0,
                               -1.0,
                               std::numeric_limits<double>::denorm_min(),
                               -std::numeric_limits<double>::denorm_min(),
                               1e-310,
                               std::numeric_limits<double>::max(),
                               -std::numeric_limits<double>::max(),
                               std::numeric_limits<double>::infinity(),
                               -std::numeric_limits<double>::infinity(),
                               1e300,
                               -1e300};
    for (const double p : {c.a, c.b, c.c, c.d}) {
        const double literal = criterion::AsScriptLiteral(p);
        for (const double v : {literal, std::nextafter(literal, -INFINITY),
                               std::nextafter(literal, INFINITY), literal * 0.5 + 1.25}) {
            values.push_back(v);
        }
    }
    for (int i = 0; i <= 16; ++i) {
        values.push_back(c.a + (c.d - c.a) * i / 16);
        values.push_back(c.a + (c.c - c.a) * i / 16);
    }
    return values;
}

// What the script stores for value (nullopt: Null), or nullopt with fails for a failing script.
inline std::optional<double> ScriptDegree(const DegreeCase& c, std::optional<double> value) {
    const criterion::MembershipFunction degree(c.kind, c.a, c.b, c.c, c.d);
    const double d = value && !std::isnan(*value) ? degree(*value) : degree.OfNull();
    return std::isnan(d) ? std::nullopt : std::optional<double>(d);
}

inline bool SameBits(double x, double y) {
    return std::memcmp(&x, &y, sizeof x) == 0;
}

} // namespace quorel::test
