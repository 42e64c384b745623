#include "criterion/Membership.h"

#include "criterion/FuzzyKind.h"
#include "util/Error.h"
#include "util/NumberText.h"
#include "util/StringFunctions.h"

#include <cmath>
#include <limits>

namespace quorel::criterion {
namespace {

constexpr double kEmpty = std::numeric_limits<double>::quiet_NaN();

[[noreturn]] void ThrowOverflow() {
    throw Error(error_number::kOverflow, "Membership", "Overflow");
}

double Checked(double value) {
    if (std::isinf(value)) {
        ThrowOverflow();
    }
    return value;
}

double Reciprocal(double divisor) {
    if (divisor == 0.0) {
        throw Error(error_number::kDivisionByZero, "Membership", "Division by zero");
    }
    return Checked(1.0 / divisor);
}

} // namespace

double AsScriptLiteral(double value) {
    if (!std::isfinite(value)) {
        return value;
    }
    return util::ParseDecimal(util::FormatNumber(value), '.').value_or(value);
}

MembershipFunction::MembershipFunction(int kind, double a, double b, double c, double d)
    : m_kind(kind), m_a(AsScriptLiteral(a)), m_b(AsScriptLiteral(b)), m_c(AsScriptLiteral(c)),
      m_d(AsScriptLiteral(d)) {
    // Lines 4 and 6 of the script (and the Fac lines, which do not depend on the value).
    switch (kind) {
    case Triangle:
        m_rateA = Reciprocal(Checked(m_b - m_a));
        m_rateB = Reciprocal(Checked(m_b - m_c));
        m_facA = Checked(1.0 - Checked(m_b * m_rateA));
        m_facB = Checked(1.0 - Checked(m_b * m_rateB));
        break;
    case RisingRamp:
        m_rateA = Reciprocal(Checked(m_b - m_a));
        m_rateB = Reciprocal(Checked(m_b - m_c));
        m_facA = Checked(1.0 - Checked(m_b * m_rateA));
        break;
    case FallingRamp:
        m_rateA = Reciprocal(Checked(m_c - m_d));
        m_rateB = Reciprocal(Checked(m_b - m_c));
        m_facA = Checked(1.0 - Checked(m_c * m_rateA));
        break;
    case Trapezoid:
        m_rateA = Reciprocal(Checked(m_b - m_a));
        m_rateB = Reciprocal(Checked(m_c - m_d));
        m_facA = Checked(1.0 - Checked(m_b * m_rateA));
        m_facB = Checked(1.0 - Checked(m_c * m_rateB));
        break;
    default:
        break;
    }
}

double MembershipFunction::operator()(double x) const {
    double out = 0;
    Evaluate(&x, &out, 1);
    return out;
}

double MembershipFunction::OfNull() const {
    return m_kind == Singleton ? 1.0 : kEmpty;
}

void MembershipFunction::Evaluate(const double* x, double* out, std::size_t count) const {
    // Each statement of the script in order: a later true condition overwrites the degree.
    // Written as selects so the loop stays free of branches and vectorises. The ramp is computed
    // for every value and only counts where the script would have computed it. Within its
    // interval a ramp stays near [0, 1] (the rate is the reciprocal of the interval's width, whose
    // overflow the constructor has checked), so no value can overflow here.
    const double a = m_a, b = m_b, c = m_c, d = m_d;
    const double rateA = m_rateA, rateB = m_rateB, facA = m_facA, facB = m_facB;
    switch (m_kind) {
    case Singleton:
        for (std::size_t i = 0; i < count; ++i) {
            out[i] = x[i] != a ? 0.0 : 1.0;
        }
        break;
    case Triangle:
        for (std::size_t i = 0; i < count; ++i) {
            const double v = x[i];
            const double up = v * rateA + facA;
            const double down = v * rateB + facB;
            double degree = kEmpty;
            degree = v < a ? 0.0 : degree;
            const bool rising = (v >= a) & (v < b);
            const bool falling = (v > b) & (v <= c);
            degree = rising ? up : degree;
            degree = v == b ? 1.0 : degree;
            degree = falling ? down : degree;
            degree = v > c ? 0.0 : degree;
            out[i] = degree;
        }
        break;
    case RisingRamp:
        for (std::size_t i = 0; i < count; ++i) {
            const double v = x[i];
            const double up = v * rateA + facA;
            double degree = kEmpty;
            degree = v <= a ? 0.0 : degree;
            const bool rising = (v >= a) & (v <= b);
            degree = rising ? up : degree;
            degree = v >= b ? 1.0 : degree;
            out[i] = degree;
        }
        break;
    case FallingRamp:
        for (std::size_t i = 0; i < count; ++i) {
            const double v = x[i];
            const double down = v * rateA + facA;
            double degree = kEmpty;
            degree = v <= c ? 1.0 : degree;
            const bool falling = (v >= c) & (v <= d);
            degree = falling ? down : degree;
            degree = v >= d ? 0.0 : degree;
            out[i] = degree;
        }
        break;
    case Trapezoid:
        for (std::size_t i = 0; i < count; ++i) {
            const double v = x[i];
            const double up = v * rateA + facA;
            const double down = v * rateB + facB;
            double degree = kEmpty;
            degree = v <= a ? 0.0 : degree;
            const bool rising = (v >= a) & (v <= b);
            const bool falling = (v >= c) & (v <= d);
            degree = rising ? up : degree;
            degree = (v >= b) & (v <= c) ? 1.0 : degree;
            degree = falling ? down : degree;
            degree = v > d ? 0.0 : degree;
            out[i] = degree;
        }
        break;
    default:
        for (std::size_t i = 0; i < count; ++i) {
            out[i] = kEmpty;
        }
        break;
    }
}

double Membership(int kind, double x, double a, double b, double c, double d) {
    return MembershipFunction(kind, a, b, c, d)(x);
}

} // namespace quorel::criterion
