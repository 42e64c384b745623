#pragma once

// Per-value semantics of the script language's operators, shared by constant folding at compile
// time and by the column loops at run time, so that both give the same doubles.
//
// Null is carried as NaN (no operation of the language makes a NaN of numbers, since 0/0 and
// overflows are errors), so arithmetic propagates it by itself and the column loops are plain
// double loops. Empty is the number 0 in every operation; only variables remember that they
// are Empty (see Machine).

#include <cmath>
#include <cstdint>
#include <limits>

namespace quorel::host::script {

inline constexpr double kNullValue = std::numeric_limits<double>::quiet_NaN();
inline constexpr double kLargest = std::numeric_limits<double>::max();

inline bool IsNullValue(double value) {
    return value != value;
}

// Runtime error numbers an operation can raise (0: none).
enum RuntimeError : int {
    kNoError = 0,
    kInvalidCall = 5, // e.g. a negative number to a fractional power
    kOverflowError = 6,
    kDivideByZero = 11,
};

// Conversion to a 32-bit integer as the integer operators do it: rounded half to even, and an
// overflow outside the range.
inline std::int32_t ToLong(double value, int& error) {
    const double rounded = std::nearbyint(value);
    if (!(rounded >= -2147483648.0 && rounded <= 2147483647.0)) {
        error = kOverflowError;
        return 0;
    }
    return static_cast<std::int32_t>(rounded);
}

// Finite operands giving an infinite (or, for 0/0, undefined) result: an error. Null operands
// (NaN) and infinite field values simply carry on.
inline bool ArithmeticFails(double result, double left, double right) {
    return !(std::fabs(result) <= kLargest) && std::fabs(left) <= kLargest &&
           std::fabs(right) <= kLargest;
}

// Each operation's Apply gives the value of one feature and its error number. The column loops
// compute the same values in vector form (see Machine).
struct AddOp {
    static double Apply(double a, double b, int& error) {
        const double r = a + b;
        error = ArithmeticFails(r, a, b) ? kOverflowError : kNoError;
        return r;
    }
};

struct SubtractOp {
    static double Apply(double a, double b, int& error) {
        const double r = a - b;
        error = ArithmeticFails(r, a, b) ? kOverflowError : kNoError;
        return r;
    }
};

struct MultiplyOp {
    static double Apply(double a, double b, int& error) {
        const double r = a * b;
        error = ArithmeticFails(r, a, b) ? kOverflowError : kNoError;
        return r;
    }
};

// x/0 is a division by zero, but 0/0 an overflow, as in the language we follow.
struct DivideOp {
    static double Apply(double a, double b, int& error) {
        const double r = a / b;
        error = !ArithmeticFails(r, a, b) ? kNoError
                : b != 0.0                ? kOverflowError
                : a == 0.0                ? kOverflowError
                                          : kDivideByZero;
        return r;
    }
};

// Comparisons give True (-1) or False (0), or Null when either side is Null.
template <typename Compare> struct CompareOp {
    static double Apply(double a, double b, int& error) {
        error = kNoError;
        // Null first: NaN <> x would be true.
        return (IsNullValue(a) || IsNullValue(b)) ? kNullValue : Compare{}(a, b) ? -1.0 : 0.0;
    }
};

struct PowerOp {
    static double Apply(double a, double b, int& error) {
        error = kNoError;
        if (IsNullValue(a) || IsNullValue(b)) {
            return kNullValue;
        }
        if ((a < 0.0 && b != std::trunc(b)) || (a == 0.0 && b < 0.0)) {
            error = kInvalidCall;
            return 0.0;
        }
        const double r = std::pow(a, b);
        if (ArithmeticFails(r, a, b)) {
            error = kOverflowError;
        }
        return r;
    }
};

// Integer division and Mod work on operands rounded to 32-bit integers.
struct IntegerDivideOp {
    static double Apply(double a, double b, int& error) {
        error = kNoError;
        if (IsNullValue(a) || IsNullValue(b)) {
            return kNullValue;
        }
        const std::int64_t left = ToLong(a, error);
        const std::int64_t right = ToLong(b, error);
        if (error != kNoError) {
            return 0.0;
        }
        if (right == 0) {
            error = kDivideByZero;
            return 0.0;
        }
        const std::int64_t quotient = left / right;
        if (quotient > 2147483647) { // only -2147483648 \ -1
            error = kOverflowError;
            return 0.0;
        }
        return static_cast<double>(quotient);
    }
};

struct ModOp {
    static double Apply(double a, double b, int& error) {
        error = kNoError;
        if (IsNullValue(a) || IsNullValue(b)) {
            return kNullValue;
        }
        const std::int64_t left = ToLong(a, error);
        const std::int64_t right = ToLong(b, error);
        if (error != kNoError) {
            return 0.0;
        }
        if (right == 0) {
            error = kDivideByZero;
            return 0.0;
        }
        return static_cast<double>(left % right);
    }
};

// And and Or are bitwise on 32-bit integers, which makes them logical on True and False. With one
// Null side the other side decides when it can: False And Null is False, True Or Null is True.
struct AndOp {
    static double Apply(double a, double b, int& error) {
        error = kNoError;
        const bool nullA = IsNullValue(a);
        const bool nullB = IsNullValue(b);
        const std::int32_t left = nullA ? -1 : ToLong(a, error);
        const std::int32_t right = nullB ? -1 : ToLong(b, error);
        if ((nullA && right != 0) || (nullB && left != 0)) {
            return kNullValue;
        }
        return static_cast<double>(left & right);
    }
};

struct OrOp {
    static double Apply(double a, double b, int& error) {
        error = kNoError;
        const bool nullA = IsNullValue(a);
        const bool nullB = IsNullValue(b);
        const std::int32_t left = nullA ? 0 : ToLong(a, error);
        const std::int32_t right = nullB ? 0 : ToLong(b, error);
        if ((nullA && right != -1) || (nullB && left != -1)) {
            return kNullValue;
        }
        return static_cast<double>(left | right);
    }
};

// And, Or and Not of truth values only (True, False or Null: comparisons and their
// combinations), which the compiler knows by their origin: the same results without the
// integer conversion.
struct LogicalAndOp {
    static double Apply(double a, double b, int& error) {
        error = kNoError;
        return (a == 0.0 || b == 0.0)               ? 0.0
               : (IsNullValue(a) || IsNullValue(b)) ? kNullValue
                                                    : -1.0;
    }
};

struct LogicalOrOp {
    static double Apply(double a, double b, int& error) {
        error = kNoError;
        return (a == -1.0 || b == -1.0)             ? -1.0
               : (IsNullValue(a) || IsNullValue(b)) ? kNullValue
                                                    : 0.0;
    }
};

struct LogicalNotOp {
    static double Apply(double a, double, int& error) {
        error = kNoError;
        return a == 0.0 ? -1.0 : IsNullValue(a) ? kNullValue : 0.0;
    }
};

struct NegateOp {
    // 0 - x rather than -x: -Empty is the number 0, not -0.
    static double Apply(double a, double, int& error) {
        error = kNoError;
        return 0.0 - a;
    }
};

struct NotOp {
    static double Apply(double a, double, int& error) {
        error = kNoError;
        if (IsNullValue(a)) {
            return kNullValue;
        }
        return static_cast<double>(~ToLong(a, error));
    }
};

// An If takes its Then branch when the condition is a non-zero number; Null and Empty do not.
inline bool IsTrue(double value) {
    return value != 0.0 && value == value;
}

} // namespace quorel::host::script
