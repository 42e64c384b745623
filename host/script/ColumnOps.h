#pragma once

// The column form of the operations whose per-feature semantics Operations.h states: two
// features at a time in GCC/Clang vector types, which every target lowers to its own vector
// instructions (or to plain ones), so the loops need no compiler luck to be vectorised. Each
// Compute gives the same doubles as the operation's Apply, and sets `fails` where Apply would
// report an error.

#include "host/script/Operations.h"

#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <functional>

namespace quorel::host::script::column {

// Two doubles: the width every 64-bit target has natively (SSE2, NEON).
inline constexpr std::size_t kLanes = 2;
using Vec = double __attribute__((vector_size(16)));
using Bits = std::int64_t __attribute__((vector_size(16))); // all ones or zero per lane

inline Vec Load(const double* p) {
    Vec v;
    std::memcpy(&v, p, sizeof v);
    return v;
}
inline Bits LoadBits(const std::int64_t* p) {
    Bits v;
    std::memcpy(&v, p, sizeof v);
    return v;
}
inline void Save(double* p, Vec v) {
    std::memcpy(p, &v, sizeof v);
}
inline void SaveBits(std::int64_t* p, Bits v) {
    std::memcpy(p, &v, sizeof v);
}

inline Vec Splat(double value) {
    return Vec{value, value};
}
inline Bits ToBits(Vec v) {
    return std::bit_cast<Bits>(v);
}
inline Vec ToVec(Bits b) {
    return std::bit_cast<Vec>(b);
}

// A comparison's lanes as plain bits. Left as truth values, GCC turns some of their ANDs with
// 64-bit integer lanes (or with each other) into a select per lane that plain SSE2 cannot do in
// vector registers, and falls back to scalar code for each lane: so every comparison goes
// through Mask before it meets another operand.
inline Bits Mask(Bits comparison) {
#if defined(__GNUC__) && (defined(__x86_64__) || defined(__i386__))
    asm("" : "+x"(comparison));
#endif
    return comparison;
}

inline Vec Select(Bits mask, Vec ifSet, Vec ifClear) {
    const Bits bits = Mask(mask);
    return ToVec((ToBits(ifSet) & bits) | (ToBits(ifClear) & ~bits));
}
inline Bits IsNull(Vec v) {
    return Mask(v != v);
}
inline Bits IsFinite(Vec v) {
    const Bits magnitude = ToBits(v) & Bits{INT64_MAX, INT64_MAX};
    return Mask(ToVec(magnitude) <= Splat(kLargest));
}
inline Bits ArithmeticFails(Vec r, Vec a, Vec b) {
    return ~IsFinite(r) & IsFinite(a) & IsFinite(b);
}
inline Bits IsTrue(Vec v) {
    return Mask(v != Splat(0.0)) & Mask(v == v);
}

struct Add {
    using Scalar = AddOp;
    static Vec Compute(Vec a, Vec b, Bits& fails) {
        const Vec r = a + b;
        fails = ArithmeticFails(r, a, b);
        return r;
    }
};
struct Subtract {
    using Scalar = SubtractOp;
    static Vec Compute(Vec a, Vec b, Bits& fails) {
        const Vec r = a - b;
        fails = ArithmeticFails(r, a, b);
        return r;
    }
};
struct Multiply {
    using Scalar = MultiplyOp;
    static Vec Compute(Vec a, Vec b, Bits& fails) {
        const Vec r = a * b;
        fails = ArithmeticFails(r, a, b);
        return r;
    }
};
struct Divide {
    using Scalar = DivideOp;
    static Vec Compute(Vec a, Vec b, Bits& fails) {
        const Vec r = a / b;
        fails = ArithmeticFails(r, a, b);
        return r;
    }
};

inline Vec Truth(Bits holds, Vec a, Vec b) {
    return Select(IsNull(a) | IsNull(b), Splat(kNullValue), Select(holds, Splat(-1.0), Splat(0.0)));
}
struct Equal {
    using Scalar = CompareOp<std::equal_to<>>;
    static Vec Compute(Vec a, Vec b, Bits&) { return Truth(a == b, a, b); }
};
struct NotEqual {
    using Scalar = CompareOp<std::not_equal_to<>>;
    static Vec Compute(Vec a, Vec b, Bits&) { return Truth(a != b, a, b); }
};
struct Less {
    using Scalar = CompareOp<std::less<>>;
    static Vec Compute(Vec a, Vec b, Bits&) { return Truth(a < b, a, b); }
};
struct Greater {
    using Scalar = CompareOp<std::greater<>>;
    static Vec Compute(Vec a, Vec b, Bits&) { return Truth(a > b, a, b); }
};
struct LessOrEqual {
    using Scalar = CompareOp<std::less_equal<>>;
    static Vec Compute(Vec a, Vec b, Bits&) { return Truth(a <= b, a, b); }
};
struct GreaterOrEqual {
    using Scalar = CompareOp<std::greater_equal<>>;
    static Vec Compute(Vec a, Vec b, Bits&) { return Truth(a >= b, a, b); }
};

struct LogicalAnd {
    using Scalar = LogicalAndOp;
    static Vec Compute(Vec a, Vec b, Bits&) {
        return Select(Mask(a == Splat(0.0)) | Mask(b == Splat(0.0)), Splat(0.0),
                      Select(IsNull(a) | IsNull(b), Splat(kNullValue), Splat(-1.0)));
    }
};
struct LogicalOr {
    using Scalar = LogicalOrOp;
    static Vec Compute(Vec a, Vec b, Bits&) {
        return Select(Mask(a == Splat(-1.0)) | Mask(b == Splat(-1.0)), Splat(-1.0),
                      Select(IsNull(a) | IsNull(b), Splat(kNullValue), Splat(0.0)));
    }
};
struct LogicalNot {
    using Scalar = LogicalNotOp;
    static Vec Compute(Vec a, Vec, Bits&) {
        return Select(a == Splat(0.0), Splat(-1.0),
                      Select(IsNull(a), Splat(kNullValue), Splat(0.0)));
    }
};
struct Negate {
    using Scalar = NegateOp;
    static Vec Compute(Vec a, Vec, Bits&) { return Splat(0.0) - a; }
};

} // namespace quorel::host::script::column
