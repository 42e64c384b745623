#pragma once

// Per-value semantics of the script language's operators, shared by constant folding at compile
// time and by the column loops at run time, so that both give the same doubles.

#include <cmath>
#include <cstdint>
#include <limits>

namespace quorel::host::script {

// A value is a double with a tag. Empty (a variable never assigned) keeps 0.0 as its double, so
// that arithmetic, which counts Empty as 0, needs no test; only Null (bit 0) must be tested.
enum Tag : std::uint8_t { kNumber = 0, kNull = 1, kEmpty = 2 };

inline bool IsNull(std::uint8_t tag) {
    return (tag & kNull) != 0;
}

// Runtime error numbers an operation can raise (0: none).
enum RuntimeError : int {
    kNoError = 0,
    kInvalidCall = 5, // e.g. a negative number to a fractional power
    kOverflowError = 6,
    kDivideByZero = 11,
};

// Conversion to a 32-bit integer as the integer operators do it: rounded half to even, and an
// overflow outside the range. Booleans (-1, 0) are the common case and take the short road.
inline std::int32_t ToLong(double value, int& error) {
    if (value == 0.0) {
        return 0;
    }
    if (value == -1.0) {
        return -1;
    }
    const double rounded = std::nearbyint(value);
    if (!(rounded >= -2147483648.0 && rounded <= 2147483647.0)) {
        error = kOverflowError;
        return 0;
    }
    return static_cast<std::int32_t>(rounded);
}

// An arithmetic result is an overflow when finite operands give an infinite result.
inline bool Overflows(double result, double left, double right) {
    constexpr double kMax = std::numeric_limits<double>::max();
    return std::fabs(result) > kMax && std::fabs(left) <= kMax && std::fabs(right) <= kMax;
}

struct AddOp {
    static void Apply(double a, std::uint8_t ta, double b, std::uint8_t tb, double& r,
                      std::uint8_t& tr, int& error) {
        r = a + b;
        tr = static_cast<std::uint8_t>((ta | tb) & kNull);
        error = (tr == kNumber && Overflows(r, a, b)) ? kOverflowError : kNoError;
    }
};

struct SubtractOp {
    static void Apply(double a, std::uint8_t ta, double b, std::uint8_t tb, double& r,
                      std::uint8_t& tr, int& error) {
        r = a - b;
        tr = static_cast<std::uint8_t>((ta | tb) & kNull);
        error = (tr == kNumber && Overflows(r, a, b)) ? kOverflowError : kNoError;
    }
};

struct MultiplyOp {
    static void Apply(double a, std::uint8_t ta, double b, std::uint8_t tb, double& r,
                      std::uint8_t& tr, int& error) {
        r = a * b;
        tr = static_cast<std::uint8_t>((ta | tb) & kNull);
        error = (tr == kNumber && Overflows(r, a, b)) ? kOverflowError : kNoError;
    }
};

// 0/0 is an overflow, not a division by zero, as in the language we follow.
struct DivideOp {
    static void Apply(double a, std::uint8_t ta, double b, std::uint8_t tb, double& r,
                      std::uint8_t& tr, int& error) {
        tr = static_cast<std::uint8_t>((ta | tb) & kNull);
        if (b == 0.0) {
            r = 0.0;
            error = tr != kNumber ? kNoError : (a == 0.0 ? kOverflowError : kDivideByZero);
            return;
        }
        r = a / b;
        error = (tr == kNumber && Overflows(r, a, b)) ? kOverflowError : kNoError;
    }
};

struct PowerOp {
    static void Apply(double a, std::uint8_t ta, double b, std::uint8_t tb, double& r,
                      std::uint8_t& tr, int& error) {
        tr = static_cast<std::uint8_t>((ta | tb) & kNull);
        error = kNoError;
        if (tr != kNumber) {
            r = 0.0;
            return;
        }
        if ((a < 0.0 && b != std::trunc(b)) || (a == 0.0 && b < 0.0)) {
            r = 0.0;
            error = kInvalidCall;
            return;
        }
        r = std::pow(a, b);
        if (Overflows(r, a, b)) {
            error = kOverflowError;
        }
    }
};

// Integer division and Mod work on operands rounded to 32-bit integers.
struct IntegerDivideOp {
    static void Apply(double a, std::uint8_t ta, double b, std::uint8_t tb, double& r,
                      std::uint8_t& tr, int& error) {
        tr = static_cast<std::uint8_t>((ta | tb) & kNull);
        error = kNoError;
        r = 0.0;
        if (tr != kNumber) {
            return;
        }
        const std::int64_t left = ToLong(a, error);
        const std::int64_t right = ToLong(b, error);
        if (error != kNoError) {
            return;
        }
        if (right == 0) {
            error = kDivideByZero;
            return;
        }
        const std::int64_t quotient = left / right;
        if (quotient > 2147483647) { // only -2147483648 \ -1
            error = kOverflowError;
            return;
        }
        r = static_cast<double>(quotient);
    }
};

struct ModOp {
    static void Apply(double a, std::uint8_t ta, double b, std::uint8_t tb, double& r,
                      std::uint8_t& tr, int& error) {
        tr = static_cast<std::uint8_t>((ta | tb) & kNull);
        error = kNoError;
        r = 0.0;
        if (tr != kNumber) {
            return;
        }
        const std::int64_t left = ToLong(a, error);
        const std::int64_t right = ToLong(b, error);
        if (error != kNoError) {
            return;
        }
        if (right == 0) {
            error = kDivideByZero;
            return;
        }
        r = static_cast<double>(left % right);
    }
};

// Comparisons give True (-1) or False (0), or Null when either side is Null.
template <typename Compare> struct CompareOp {
    static void Apply(double a, std::uint8_t ta, double b, std::uint8_t tb, double& r,
                      std::uint8_t& tr, int& error) {
        tr = static_cast<std::uint8_t>((ta | tb) & kNull);
        r = Compare{}(a, b) ? -1.0 : 0.0;
        error = kNoError;
    }
};

// And and Or are bitwise on 32-bit integers, which makes them logical on True and False. With one
// Null side the other side decides when it can: False And Null is False, True Or Null is True.
struct AndOp {
    static void Apply(double a, std::uint8_t ta, double b, std::uint8_t tb, double& r,
                      std::uint8_t& tr, int& error) {
        error = kNoError;
        r = 0.0;
        const bool nullA = IsNull(ta);
        const bool nullB = IsNull(tb);
        const std::int32_t left = nullA ? 0 : ToLong(a, error);
        const std::int32_t right = nullB ? 0 : ToLong(b, error);
        if (nullA && nullB) {
            tr = kNull;
        } else if (nullA || nullB) {
            tr = (nullA ? right : left) == 0 ? kNumber : kNull;
        } else {
            tr = kNumber;
            r = static_cast<double>(left & right);
        }
    }
};

struct OrOp {
    static void Apply(double a, std::uint8_t ta, double b, std::uint8_t tb, double& r,
                      std::uint8_t& tr, int& error) {
        error = kNoError;
        r = -1.0;
        const bool nullA = IsNull(ta);
        const bool nullB = IsNull(tb);
        const std::int32_t left = nullA ? 0 : ToLong(a, error);
        const std::int32_t right = nullB ? 0 : ToLong(b, error);
        if (nullA && nullB) {
            tr = kNull;
        } else if (nullA || nullB) {
            tr = (nullA ? right : left) == -1 ? kNumber : kNull;
        } else {
            tr = kNumber;
            r = static_cast<double>(left | right);
        }
    }
};

struct NegateOp {
    static void Apply(double a, std::uint8_t ta, double& r, std::uint8_t& tr, int& error) {
        tr = static_cast<std::uint8_t>(ta & kNull);
        r = ta == kEmpty ? 0.0 : -a; // -Empty is the number 0, not -0
        error = kNoError;
    }
};

struct NotOp {
    static void Apply(double a, std::uint8_t ta, double& r, std::uint8_t& tr, int& error) {
        error = kNoError;
        tr = static_cast<std::uint8_t>(ta & kNull);
        r = 0.0;
        if (tr == kNumber) {
            const std::int32_t value = ToLong(a, error);
            r = static_cast<double>(~value);
        }
    }
};

// An If takes its Then branch when the condition is a non-zero number; Null and Empty do not.
inline bool IsTrue(double value, std::uint8_t tag) {
    return tag != kNull && value != 0.0;
}

} // namespace quorel::host::script
